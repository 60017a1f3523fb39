"""Flow of frame pairs: the one-call function and the Engine that keeps its
backend for many pairs."""

from __future__ import annotations

from typing import Any, Callable, NamedTuple, Optional

import numpy as np

from . import _vemo, _waiting
from ._scale import warn_if_unit_scale
from .options import PARAMETERS, check_device, check_preset, check_threads, resolve_parameters, warn_fallback


class PairFlow(NamedTuple):
    """The flows of one pair, as ``vemo-flow --backward --occlusions`` writes them."""

    forward: np.ndarray
    """frame 1 -> frame 2, float32 H x W x 2 (u, v in pixels)."""
    backward: np.ndarray
    """frame 2 -> frame 1, float32 H x W x 2."""
    occluded: np.ndarray
    """bool H x W: True where forward and backward flow disagree (the pixel
    is hidden in frame 2 or leaves the frame)."""


def _array(frame: object, name: str) -> np.ndarray:
    """A frame as the module takes it: a numpy array in the machine's byte
    order (a big-endian array is converted, values unchanged)."""
    if not isinstance(frame, np.ndarray):
        raise TypeError(f"{name} must be a numpy array, not {type(frame).__name__}")
    warn_if_unit_scale(frame, name, stacklevel=3)  # points at the caller of Engine.flow
    if not frame.dtype.isnative:
        return frame.astype(frame.dtype.newbyteorder("="))
    return frame


def _parameters(preset: Optional[str], **parameters: Any) -> "_vemo.Parameters":
    """The seven parameters (the preset's, those given over them) and the
    preset's name, checked, as the module's calls take them."""
    name, checked = resolve_parameters(preset, **parameters)
    return _vemo.check_parameters(*(checked[p.name] for p in PARAMETERS), name)


def _cancellable(call: Callable[..., Any], *args: Any) -> Any:
    """call(*args, cancel flag) on a worker thread; Ctrl-C sets the flag."""
    flag = _vemo.CancelFlag()
    return _waiting.call(call, *args, flag, cancel=flag.set)


class Engine:
    """One backend, and the buffers it keeps, for many frame pairs.

    ``device`` is ``"auto"`` (the CUDA GPU where one is usable, else the
    CPU), ``"cpu"``, ``"cuda"`` (device 0) or ``"cuda:N"``. A CUDA device
    that cannot be used gives a RuntimeWarning saying why, and the engine
    runs on the CPU, as ``vemo-flow --device cuda`` does (make the warning
    an error with ``warnings.simplefilter("error", RuntimeWarning)``).
    ``threads`` limits the OpenMP threads of the CPU stages (None: all
    cores, or ``OMP_NUM_THREADS``); results do not depend on it. ``preset``
    is the operating point its calls start from (``vemo.options.preset_names()``:
    "ultrafast", "fast", "default", "quality"; docs/performance.md lists what
    each costs and gains); a call may name another. Wrong types raise
    TypeError, names and counts out of range ValueError.

    The computations release the GIL, so other threads can read or write
    files meanwhile; Engines on different threads compute at the same time,
    and calls on one Engine take turns.
    """

    def __init__(self, device: str = "auto", threads: Optional[int] = None, preset: str = "default") -> None:
        self._preset = check_preset(preset)
        device = check_device(device)
        count = check_threads(threads) or 0
        try:
            self._engine = _vemo.Engine(device, count)
        except RuntimeError as error:
            if not device.startswith("cuda"):
                raise
            warn_fallback(device, str(error))
            self._engine = _vemo.Engine("cpu", count)

    @property
    def device(self) -> str:
        """The backend that runs this engine's pairs: ``"cpu"`` or ``"cuda"``."""
        return self._engine.device

    def __repr__(self) -> str:
        threads = self._engine.threads or None
        return f"vemo.Engine(device={self.device!r}, threads={threads!r}, preset={self._preset!r})"

    def flow(
        self,
        frame1: np.ndarray,
        frame2: np.ndarray,
        *,
        preset: Optional[str] = None,
        sigma: Optional[float] = None,
        alpha: Optional[float] = None,
        beta: Optional[float] = None,
        gamma: Optional[float] = None,
        eta: Optional[float] = None,
        fixed_point_iters: Optional[int] = None,
        solver_iters: Optional[int] = None,
    ) -> np.ndarray:
        """The flow from frame1 to frame2 as float32 H x W x 2 (u, v in pixels).

        Frames: H x W x 3 (RGB) or H x W (grey) arrays of uint8, uint16
        (scaled by 255/65535) or float32 (0..255 scale; a UserWarning says
        when a float32 frame has no value above 1, the 0..1 scale), any
        strides, both of the same size, at least 2 x 2. ``preset`` (None:
        the Engine's) sets every choice of the method; the parameters given
        (not None) override its values. They are those of the ``vemo``
        program: presmoothing sigma, smoothness alpha, matching weight beta,
        gradient-constancy weight gamma, pyramid factor eta, fixed-point and
        solver iterations (the "default" preset's: 0.8, 30, 300, 5, 0.95, 5
        and 10). The result equals the ``.flo`` that ``vemo-flow --preset``
        writes for the same frames, preset and options, bit for bit; with
        the "default" preset, that of the ``vemo`` program.

        Raises TypeError or ValueError for bad frames or parameters (before
        any work), MemoryError when the run does not fit in memory and
        RuntimeError for a failure of the backend. Ctrl-C stops the
        computation within a fraction of a second (KeyboardInterrupt); the
        Engine stays usable.
        """
        parameters = _parameters(self._preset if preset is None else preset, sigma=sigma, alpha=alpha, beta=beta,
                         gamma=gamma, eta=eta, fixed_point_iters=fixed_point_iters, solver_iters=solver_iters)
        return _cancellable(self._engine.flow, _array(frame1, "frame1"), _array(frame2, "frame2"), parameters)

    def flow_pair(
        self,
        frame1: np.ndarray,
        frame2: np.ndarray,
        *,
        preset: Optional[str] = None,
        sigma: Optional[float] = None,
        alpha: Optional[float] = None,
        beta: Optional[float] = None,
        gamma: Optional[float] = None,
        eta: Optional[float] = None,
        fixed_point_iters: Optional[int] = None,
        solver_iters: Optional[int] = None,
    ) -> PairFlow:
        """Forward flow, backward flow and occlusion mask of a pair.

        The backward flow is computed from the frames as given (both flows
        see frames smoothed once), and a pixel is occluded where the forward
        flow and the backward flow at its target do not cancel, as with
        ``vemo-flow --backward --occlusions``. Frames, parameters and errors
        as for :meth:`flow`.
        """
        parameters = _parameters(self._preset if preset is None else preset, sigma=sigma, alpha=alpha, beta=beta,
                         gamma=gamma, eta=eta, fixed_point_iters=fixed_point_iters, solver_iters=solver_iters)
        forward, backward, occluded = _cancellable(
            self._engine.flow_pair, _array(frame1, "frame1"), _array(frame2, "frame2"), parameters)
        return PairFlow(forward, backward, occluded)


def flow(
    frame1: np.ndarray,
    frame2: np.ndarray,
    *,
    preset: str = "default",
    sigma: Optional[float] = None,
    alpha: Optional[float] = None,
    beta: Optional[float] = None,
    gamma: Optional[float] = None,
    eta: Optional[float] = None,
    fixed_point_iters: Optional[int] = None,
    solver_iters: Optional[int] = None,
    device: str = "auto",
    threads: Optional[int] = None,
) -> np.ndarray:
    """The flow from frame1 to frame2 as float32 H x W x 2 (u, v in pixels).

    A one-off :class:`Engine` (``device``, ``threads``, ``preset``)
    computes it; see :meth:`Engine.flow` for the frames, the parameters and
    the errors. For many pairs keep an Engine, which keeps its buffers.
    """
    return Engine(device, threads, preset).flow(
        frame1, frame2, sigma=sigma, alpha=alpha, beta=beta, gamma=gamma, eta=eta,
        fixed_point_iters=fixed_point_iters, solver_iters=solver_iters,
    )
