"""Property test of the Python API's input checks: any array, whatever its
dtype, shape, strides, order or size, either computes or raises the
documented exception (TypeError for the dtype or the type, ValueError for
the shape, the size or the values), and a computed flow does not depend on
the layout."""

from __future__ import annotations

import warnings

import numpy as np
import pytest

import vemo

hypothesis = pytest.importorskip("hypothesis")
from hypothesis import HealthCheck, given, settings, strategies as st  # noqa: E402
from hypothesis.extra import numpy as hnp  # noqa: E402

DTYPES = [np.bool_, np.int8, np.uint8, np.int16, np.uint16, np.int32, np.uint32, np.int64, np.float16, np.float32,
          np.float64, np.complex64]
ACCEPTED = (np.uint8, np.uint16, np.float32)
FAST = dict(fixed_point_iters=1, solver_iters=2)


def elements(dtype):
    if dtype == np.float32:  # now and then a value that is not finite
        return st.one_of(st.floats(0, 255, width=32), st.sampled_from([np.nan, np.inf]))
    if np.issubdtype(dtype, np.integer):
        info = np.iinfo(dtype)
        return st.integers(max(int(info.min), 0), min(int(info.max), 255))
    return None  # hypothesis's own choice


@st.composite
def arrays(draw):
    # Half of the examples near what computes, so that both sides are tried.
    dtype = np.dtype(draw(st.sampled_from(ACCEPTED) | st.sampled_from(DTYPES)))
    side = st.sampled_from([0, 1, 2, 3, 5, 9, 26])
    shape = draw(st.tuples(side, side) | st.tuples(side, side, st.just(3)) |
                 st.lists(side, min_size=0, max_size=4).map(tuple))
    array = draw(hnp.arrays(dtype, shape, elements=elements(dtype)))
    layout = draw(st.sampled_from(["c", "fortran", "every-other", "reversed", "planar", "broadcast"]))
    if array.ndim == 0 or array.size == 0 or layout == "c":
        return array
    if layout == "fortran":
        return np.asfortranarray(array)
    if layout == "every-other":
        axis = draw(st.integers(0, array.ndim - 1))
        return np.repeat(array, 2, axis=axis)[(slice(None),) * axis + (slice(None, None, 2),)]
    if layout == "reversed":
        return array[::-1]
    if layout == "planar":
        return np.moveaxis(np.ascontiguousarray(np.moveaxis(array, -1, 0)), 0, -1)
    return np.broadcast_to(array[:1], array.shape)  # a read-only view with a zero stride


def documented(frame: np.ndarray):
    """What the documentation says of a frame: None where it computes, else
    the exception."""
    if frame.dtype not in ACCEPTED:
        return TypeError
    if not (frame.ndim == 2 or (frame.ndim == 3 and frame.shape[2] == 3)) or min(frame.shape[:2]) < 2:
        return ValueError
    if frame.dtype == np.float32 and not np.isfinite(frame).all():
        return ValueError
    return None


@pytest.fixture(scope="module")
def engine():
    return vemo.Engine("cpu", threads=1)


@settings(max_examples=80, deadline=None, suppress_health_check=[HealthCheck.too_slow, HealthCheck.data_too_large])
@given(frame=arrays())
def test_any_array_computes_or_raises_the_documented_exception(engine, frame):
    expected = documented(frame)
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", UserWarning)  # the 0..1 scale warning
        try:
            flow = engine.flow(frame, frame, **FAST)
        except (TypeError, ValueError) as error:
            assert expected is type(error), f"{type(error).__name__}: {error}"
            return
        assert expected is None, f"{frame.dtype} {frame.shape} computed"
        hypothesis.event("computed")
        assert flow.dtype == np.float32 and flow.shape == frame.shape[:2] + (2,)
        assert np.isfinite(flow).all()
        contiguous = np.ascontiguousarray(frame)
        assert np.array_equal(flow, engine.flow(contiguous, contiguous, **FAST))


def test_what_is_not_an_array_or_too_large_is_refused_before_any_work(engine):
    with pytest.raises(TypeError, match="numpy array"):
        engine.flow([[0, 1], [2, 3]], np.zeros((2, 2), np.uint8))
    # Views of any size without their memory: refused by their size alone.
    for shape in [(70000, 2), (8193, 8192)]:
        huge = np.broadcast_to(np.zeros((1, 1), np.uint8), shape)
        with pytest.raises(ValueError, match="67108864 pixels"):
            engine.flow(huge, huge)
