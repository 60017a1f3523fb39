"""vemo.flow and vemo.Engine against the programs, and their input checks."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
import threading
import time
import warnings

import numpy as np
import pytest

import vemo
from vemo import _waiting
from conftest import run_program, textured_frames, write_ppm


@pytest.fixture(scope="module")
def pair():
    return textured_frames(2, 80, 60)


def test_flow_equals_the_vemo_program_bit_for_bit(tmp_path, pair, capfd):
    write_ppm(tmp_path / "a.ppm", pair[0])
    write_ppm(tmp_path / "b.ppm", pair[1])
    # Defaults, then all seven parameters given.
    run_program("vemo", "a.ppm", "b.ppm", cwd=tmp_path)
    expected = vemo.read_flo(tmp_path / "a.ppmVEMO.flo")
    assert np.array_equal(vemo.flow(*pair, device="cpu"), expected)

    run_program("vemo", "a.ppm", "b.ppm", 1.2, 20, 100, 3, 0.9, 3, 7, cwd=tmp_path)
    expected = vemo.read_flo(tmp_path / "a.ppmVEMO.flo")
    got = vemo.flow(*pair, sigma=1.2, alpha=20, beta=100, gamma=3, eta=0.9, fixed_point_iters=3, solver_iters=7,
                    device="cpu", threads=1)
    assert np.array_equal(got, expected)
    assert got.dtype == np.float32 and got.shape == (60, 80, 2)
    # The programs' stage timings stay out of a library's standard output.
    assert capfd.readouterr().out == ""


def test_every_accepted_layout_gives_the_same_flow(pair):
    a, b = pair
    engine = vemo.Engine("cpu")
    reference = engine.flow(a, b)
    # float32 on the 0..255 scale, uint16 scaled by 255/65535 (257 v maps to v).
    assert np.array_equal(engine.flow(a.astype(np.float32), b.astype(np.float32)), reference)
    assert np.array_equal(engine.flow(a.astype(np.uint16) * 257, b.astype(np.uint16) * 257), reference)
    # Non-contiguous views: planar storage seen as H x W x 3, every other column.
    planar = [np.ascontiguousarray(f.transpose(2, 0, 1)).transpose(1, 2, 0) for f in pair]
    assert not planar[0].flags.c_contiguous
    assert np.array_equal(engine.flow(*planar), reference)
    wide = [np.repeat(f, 2, axis=1)[:, ::2] for f in pair]
    assert np.array_equal(engine.flow(*wide), reference)
    # Grey frames are replicated into three channels.
    grey = [f[..., 1] for f in pair]
    assert np.array_equal(engine.flow(*grey), engine.flow(*[np.repeat(g[..., None], 3, axis=2) for g in grey]))


def test_flow_pair_equals_vemo_flow_backward_and_occlusions(tmp_path):
    frames = textured_frames(2, 64, 48, shift=(2.5, -1.0), seed=3)
    write_ppm(tmp_path / "a.ppm", frames[0])
    write_ppm(tmp_path / "b.ppm", frames[1])
    run_program("vemo-flow", "a.ppm", "b.ppm", "-o", "f.flo", "--backward", "b.flo", "--occlusions", "o.png",
                "--device", "cpu", "-q", cwd=tmp_path)
    engine = vemo.Engine("cpu", threads=1)
    forward, backward, occluded = engine.flow_pair(*frames)
    assert np.array_equal(forward, vemo.read_flo(tmp_path / "f.flo"))
    assert np.array_equal(backward, vemo.read_flo(tmp_path / "b.flo"))
    assert occluded.dtype == bool and occluded.shape == (48, 64)
    assert np.array_equal(occluded, vemo.read_frame(tmp_path / "o.png")[..., 0] > 0)
    assert occluded.any() and not occluded.all()
    # The engine's kept buffers do not change a later pair's result.
    assert np.array_equal(engine.flow(*frames), forward)


@pytest.mark.parametrize(
    "change, error, message",
    [
        (lambda a, b: (a.astype(np.int64), b), TypeError, "int64"),
        (lambda a, b: (a.tolist(), b), TypeError, "numpy array"),
        (lambda a, b: (np.dstack([a, a[..., :1]]), b), ValueError, "shape"),
        (lambda a, b: (a[:, :40], b), ValueError, "differ in size"),
        (lambda a, b: (a[:1], b[:1]), ValueError, "at least 2 x 2"),
        (lambda a, b: (np.where(a > 0, a, np.nan).astype(np.float32), b), ValueError, "NaN"),
    ],
)
def test_bad_frames_are_refused_before_any_work(pair, change, error, message):
    with pytest.raises(error, match=message):
        vemo.flow(*change(*pair), device="cpu")


@pytest.mark.parametrize(
    "arguments, message",
    [(dict(eta=1.0), "eta"), (dict(eta=float("inf")), "eta"), (dict(solver_iters=-1), "solver_iters"),
     (dict(alpha=float("nan")), "alpha"), (dict(device="gpu"), "device"), (dict(threads=0), "threads")],
)
def test_bad_parameters_raise_value_error(pair, arguments, message):
    with pytest.raises(ValueError, match=message):
        vemo.flow(*pair, **arguments)


@pytest.mark.parametrize(
    "arguments, message",
    [(dict(solver_iters=2.5), "solver_iters must be a whole number \\(int\\), not float 2.5"),
     (dict(alpha="30"), "alpha must be a number \\(int or float\\), not str '30'"),
     (dict(threads=True), "threads must be a whole number"), (dict(device=0), "device must be a str")],
)
def test_wrong_types_raise_type_error_naming_the_argument(pair, arguments, message):
    with pytest.raises(TypeError, match=message):
        vemo.flow(*pair, **arguments)


def test_numpy_numbers_and_big_endian_frames_give_the_same_flow(pair):
    a, b = [f[:40, :40] for f in pair]
    reference = vemo.flow(a, b, sigma=1.0, solver_iters=7, threads=1, device="cpu")
    assert np.array_equal(vemo.flow(a, b, sigma=np.float32(1.0), solver_iters=np.int64(7), threads=np.int32(1),
                                    device="cpu"), reference)
    for dtype, scale in ((">f4", 1), (">u2", 257)):
        swapped = [(f.astype(np.uint16) * scale).astype(dtype) for f in (a, b)]
        assert np.array_equal(vemo.flow(*swapped, sigma=1.0, solver_iters=7, device="cpu"), reference), dtype


def test_the_bounds_themselves_are_accepted(pair):
    small = [f[:30, :30] for f in pair]
    assert vemo.flow(*small, eta=0.99, sigma=100, fixed_point_iters=0, solver_iters=0).shape == (30, 30, 2)
    # An eta outside 0..1 builds no pyramid, as in the programs.
    assert vemo.flow(*small, eta=1.5, fixed_point_iters=1).shape == (30, 30, 2)


def test_a_frame_too_large_for_memory_raises_memory_error():
    # 65535 x 1024 pixels need about 25 GB; views with zero strides cost no
    # memory on the way in.
    need = 65535 * 1024 * 92 * 4
    with open("/proc/meminfo") as f:
        available = next(int(line.split()[1]) * 1024 for line in f if line.startswith("MemAvailable"))
    if available > need:
        pytest.skip("this machine could run the frame")
    frame = np.broadcast_to(np.uint8(7), (1024, 65535))
    with pytest.raises(MemoryError, match="needs about"):
        vemo.flow(frame, frame, device="cpu")


def test_a_pair_beyond_the_process_memory_limit_raises_memory_error_before_any_work():
    # In a child whose address space may grow by 400 MiB: the pair needs
    # about 840 MiB.
    code = """
import resource, time, numpy as np, vemo
pages = int(open("/proc/self/statm").read().split()[0])
resource.setrlimit(resource.RLIMIT_AS, (pages * resource.getpagesize() + (400 << 20), resource.RLIM_INFINITY))
frame = np.zeros((1200, 2000, 3), np.uint8)
start = time.perf_counter()
try:
    vemo.flow(frame, frame, device="cpu")
except MemoryError as error:
    print(f"MemoryError {time.perf_counter() - start:.3f} {error}")
"""
    run = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=300)
    assert run.stdout.startswith("MemoryError"), run.stdout + run.stderr
    assert "a 2000 x 1200 frame with 3 channels needs about" in run.stdout
    assert float(run.stdout.split()[1]) < 2.0, "refused after work had begun"


def test_a_float_frame_on_the_0_to_1_scale_is_warned_about(pair):
    a, b = (f.astype(np.float32) for f in pair)
    with pytest.warns(UserWarning, match="frame1 is float32 with no value above 1.*multiply it by 255"):
        vemo.flow(a / 255, b, device="cpu", fixed_point_iters=1, solver_iters=1)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        vemo.flow(a, b, device="cpu", fixed_point_iters=1, solver_iters=1)
        vemo.flow(*pair, device="cpu", fixed_point_iters=1, solver_iters=1)


@pytest.fixture
def ctrl_c():
    """Ctrl-C raises KeyboardInterrupt here even where the run was started
    with SIGINT ignored (a background job of a script)."""
    previous = signal.signal(signal.SIGINT, signal.default_int_handler)
    yield
    signal.signal(signal.SIGINT, previous)


def test_ctrl_c_stops_a_flow_at_once_and_the_engine_goes_on(pair, ctrl_c):
    engine = vemo.Engine("cpu", threads=1)
    big = textured_frames(2, 640, 480)
    threading.Timer(0.5, os.kill, (os.getpid(), signal.SIGINT)).start()
    start = time.perf_counter()
    with pytest.raises(KeyboardInterrupt):
        engine.flow(*big)
    assert time.perf_counter() - start < 1.5, "the computation ran on after Ctrl-C"
    assert np.array_equal(engine.flow(*pair), vemo.flow(*pair, device="cpu"))


def test_ctrl_c_reaches_a_thread_waiting_for_a_long_call(ctrl_c):
    cancelled = []
    threading.Timer(0.2, os.kill, (os.getpid(), signal.SIGINT)).start()
    start = time.perf_counter()
    with pytest.raises(KeyboardInterrupt):
        _waiting.call(time.sleep, 5, cancel=lambda: cancelled.append(True))
    assert time.perf_counter() - start < 1.0 and cancelled
    with pytest.raises(ZeroDivisionError):  # the call's own exception comes through
        _waiting.call(divmod, 1, 0)


def test_flow_releases_the_gil(pair):
    engine = vemo.Engine("cpu", threads=1)
    big = [np.repeat(np.repeat(f, 2, 0), 2, 1) for f in pair]
    span = []

    def compute():
        start = time.perf_counter()
        engine.flow(*big)
        span.extend([start, time.perf_counter()])

    worker = threading.Thread(target=compute)
    worker.start()
    stamps = []
    while worker.is_alive():
        stamps.append(time.perf_counter())
        time.sleep(0.001)
    worker.join()
    start, end = span
    inside = [t for t in stamps if start <= t <= end]
    gaps = np.diff([start, *inside, end])
    # Holding the GIL would stop this thread for the whole computation.
    assert gaps.max() < 0.5 * (end - start)


def gpus() -> int:
    from vemo import _vemo

    return _vemo.cuda_devices()


def test_asking_for_cuda_without_a_usable_gpu_warns_and_runs_on_the_cpu(pair):
    if gpus():
        pytest.skip("a GPU is usable here")
    for device in ("cuda", "cuda:1"):
        with pytest.warns(RuntimeWarning, match=f"cannot use {device}: .*running on the cpu backend instead"):
            engine = vemo.Engine(device)
        assert engine.device == "cpu"
    with pytest.warns(RuntimeWarning):
        small = [f[:30, :30] for f in pair]
        assert np.array_equal(vemo.flow(*small, device="cuda"), vemo.flow(*small, device="cpu"))


@pytest.mark.gpu
def test_the_cuda_engine_agrees_with_the_cpu(pair):
    if not gpus():
        pytest.skip("no usable CUDA GPU")
    engine = vemo.Engine("cuda")
    assert engine.device == "cuda"
    difference = np.abs(engine.flow(*pair) - vemo.flow(*pair, device="cpu"))
    # The whole-run tolerance of the GPU tests, with matching.
    assert difference.mean() <= 0.01


def test_presets_match_vemo_flow_and_given_parameters_override_them(tmp_path, pair):
    write_ppm(tmp_path / "a.ppm", pair[0])
    write_ppm(tmp_path / "b.ppm", pair[1])
    for preset, given, options in [("fast", {}, []), ("ultrafast", {"alpha": 20, "eta": 0.7},
                                                        ["--alpha", 20, "--eta", 0.7])]:
        run_program("vemo-flow", "a.ppm", "b.ppm", "-o", "f.flo", "-q", "--preset", preset, *options, cwd=tmp_path)
        expected = vemo.read_flo(tmp_path / "f.flo")
        assert np.array_equal(vemo.flow(*pair, preset=preset, device="cpu", **given), expected), preset
        assert np.array_equal(vemo.Engine("cpu", preset=preset).flow(*pair, **given), expected), preset
        assert np.array_equal(vemo.Engine("cpu").flow(*pair, preset=preset, **given), expected), preset
    assert not np.array_equal(expected, vemo.flow(*pair, device="cpu"))
    for call in (lambda: vemo.flow(*pair, preset="fats"), lambda: vemo.Engine(preset="Fast"),
                 lambda: vemo.Engine().flow(*pair, preset="")):
        with pytest.raises(ValueError, match="the presets are ultrafast, fast, default, quality"):
            call()
