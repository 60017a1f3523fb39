"""Frame input, colour coding and error measures, from the library."""

from __future__ import annotations

from typing import Optional

import numpy as np

from . import _vemo, _waiting
from .paths import PathLike, readable_file


def read_frame(path: PathLike) -> np.ndarray:
    """A PNG (8 or 16 bit), JPEG or binary PGM/PPM frame as vemo-flow reads
    it: float32 H x W x 3 on the 0..255 scale, grey replicated.

    Raises FileNotFoundError for a missing file, IsADirectoryError for a
    folder, ValueError for a device or pipe, and OSError (with the reason)
    for a file that cannot be read or decoded.
    """
    return _vemo.read_frame(readable_file(path, "frame"))


def _flow32(flow: np.ndarray, name: str) -> np.ndarray:
    if not isinstance(flow, np.ndarray):
        raise TypeError(f"{name} must be a numpy array, not {type(flow).__name__}")
    if flow.dtype.kind == "f" and flow.dtype != np.float32:
        return flow.astype(np.float32)
    return flow


def flow_to_rgb(flow: np.ndarray, max_flow: Optional[float] = None) -> np.ndarray:
    """The library's colour coding of a flow: uint8 H x W x 3 RGB.

    The hue gives the direction and the brightness the length; vectors of
    ``max_flow`` pixels or longer are fully bright (None: the longest finite
    vector of the field). Unknown (>= 1e9) or non-finite vectors are black.
    The same picture as ``vemo-flow --viz``. Fields larger than the largest
    frame (2**26 pixels) raise ValueError; Ctrl-C interrupts the call.
    """
    if max_flow is not None and not max_flow > 0:
        raise ValueError(f"max_flow must be above 0, not {max_flow}")
    flag = _vemo.CancelFlag()
    return _waiting.call(_vemo.flow_to_rgb, _flow32(flow, "flow"), 0.0 if max_flow is None else float(max_flow), flag,
                         cancel=flag.set)


def evaluate(flow: np.ndarray, truth: np.ndarray) -> dict:
    """Error measures of a flow against ground truth, as ``vemo-eval --json``.

    Keys: width, height, known_pixels, nonfinite_pixels (ground truth left
    out for not being finite), missing_vectors (known pixels whose flow
    vector is NaN or infinite: they count beyond every threshold and are
    left out of the means), measured_vectors (known pixels with a finite
    vector: what the means are taken over), epe (mean end-point error), aae
    (average angular error of the directions, over all pixels; NaN when
    vectors are missing), angular_error (classic space-time angular error),
    over_1px and over_3px (share of known pixels with end-point error above
    1 and 3 pixels, or missing), and epe_s0_10, epe_s10_40, epe_s40plus with
    pixels_s0_10, ... (end-point error by true motion length). Ground truth
    of 1e9 or more, or not finite, is unknown and left out; means without
    any pixel are NaN.
    """
    return _vemo.evaluate(_flow32(flow, "flow"), _flow32(truth, "truth"))
