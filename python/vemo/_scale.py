"""A float frame on the 0..1 scale, taken as 0..255 frames are, gives a
flow of the wrong size of texture: the method's weights assume 0..255."""

from __future__ import annotations

import warnings

import numpy as np


def warn_if_unit_scale(frame: np.ndarray, name: str, stacklevel: int) -> None:
    """Warns when a float32 frame has no value above 1."""
    if frame.dtype != np.float32 or frame.size == 0:
        return
    largest = np.max(frame)
    if np.isfinite(largest) and largest <= 1:  # non-finite values are refused anyway
        warnings.warn(
            f"{name} is float32 with no value above 1: frames are on the 0..255 scale, so a frame on the 0..1 "
            "scale gives a wrong flow; multiply it by 255",
            UserWarning,
            stacklevel=stacklevel + 1,
        )
