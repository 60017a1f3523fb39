"""The front ends take one set of options: vemo-flow, vemo.flow / vemo.Engine,
python -m vemo.batch and the library's own check agree on the parameters'
names, defaults and ranges, on device names and fallbacks and on thread
counts. Each front end's table is read from what it shows a user (--help,
the signature) and then probed just inside and just outside every bound."""

from __future__ import annotations

import inspect
import re
import subprocess
import sys

import numpy as np
import pytest

import vemo
from vemo import _vemo
from vemo.batch import run_batch
from vemo.batch.run import _local_device as local_device
from vemo.options import PARAMETERS
from conftest import REPO, program, write_ppm


def help_table(text: str) -> dict:
    """name -> (default, range) from "--name ... (default D; RANGE)" entries
    of a --help text, lines joined."""
    flat = " ".join(text.split())
    table = {}
    for match in re.finditer(r"--([a-z-]+) [A-Z_]+ (?:(?! --[a-z]).)*?\(default ([-0-9.e]+); ([^)]+)\)", flat):
        table[match.group(1).replace("-", "_")] = (float(match.group(2)), match.group(3))
    return table


def flow_help() -> str:
    return subprocess.run([program("vemo-flow"), "--help"], capture_output=True, text=True, check=True).stdout


def batch_help() -> str:
    return subprocess.run([sys.executable, "-m", "vemo.batch", "--help"], capture_output=True, text=True,
                          check=True, cwd=REPO).stdout


def test_every_front_end_shows_the_same_names_defaults_and_ranges():
    expected = {p.name: (float(p.default), p.range_text) for p in PARAMETERS}
    assert help_table(flow_help()) == expected
    assert help_table(batch_help()) == expected
    # The defaults shown are the default preset's, which the library holds.
    assert dict(zip(vemo.options.DEFAULTS, _vemo.preset_parameters("default"))) == \
        pytest.approx(vemo.options.DEFAULTS)
    for function in (vemo.flow, vemo.Engine.flow, vemo.Engine.flow_pair, run_batch):
        signature = inspect.signature(function).parameters
        # None: the preset's value.
        assert {name: signature[name].default for name in expected} == dict.fromkeys(expected), \
            function.__qualname__
        assert "preset" in signature, function.__qualname__


def outside_and_inside(parameter):
    """(refused values, accepted values) at the parameter's bounds."""
    if parameter.low is None:
        return [1.0, 1.00000001, float("inf"), float("nan")], [0.5, 1.5, -2.0]
    if parameter.whole:
        return [parameter.low - 1, parameter.high + 1], [parameter.low, parameter.high]
    # Steps that survive the library's float32: 1e6 + 1e-3 is 1e6 there.
    return ([parameter.low - 1e-3, parameter.high * (1 + 1e-6)], [float(parameter.low), float(parameter.high)])


@pytest.fixture(scope="module")
def tiny(tmp_path_factory):
    """A 4 x 4 pair: every vemo-flow run at a bound takes milliseconds."""
    folder = tmp_path_factory.mktemp("tiny")
    rng = np.random.default_rng(5)
    frames = [rng.integers(0, 255, (4, 4, 3), dtype=np.uint8) for _ in range(2)]
    for name, frame in zip(("a.ppm", "b.ppm"), frames):
        write_ppm(folder / name, frame)
    return folder, frames


def vemo_flow(folder, *options) -> subprocess.CompletedProcess:
    return subprocess.run([program("vemo-flow"), "a.ppm", "b.ppm", "-o", "f.flo", "-q", *map(str, options)],
                          cwd=folder, capture_output=True, text=True, timeout=120)


@pytest.mark.parametrize("parameter", PARAMETERS, ids=lambda p: p.name)
def test_every_front_end_refuses_and_accepts_the_same_values(parameter, tiny, tmp_path):
    folder, frames = tiny
    option = "--" + parameter.name.replace("_", "-")
    # Few iterations, so that a run at a high bound stays short.
    quick = {"fixed_point_iters": 1, "solver_iters": 1, "eta": 2.0}
    quick.pop(parameter.name, None)
    quick_options = [text for name, value in quick.items() for text in ("--" + name.replace("_", "-"), value)]
    refused, accepted = outside_and_inside(parameter)
    for value in refused:
        done = vemo_flow(folder, option, value)
        assert done.returncode == 2 and option in done.stderr, (value, done.stderr)
        with pytest.raises(ValueError, match=parameter.name):
            vemo.flow(*frames, **{parameter.name: value})
        with pytest.raises(ValueError, match=parameter.name):
            run_batch([str(tmp_path / "nothing")], str(tmp_path / "out"), **{parameter.name: value})
        with pytest.raises(ValueError, match=parameter.name):  # the library's own check
            _vemo.check_parameters(**dict(vemo.options.DEFAULTS, **{parameter.name: value}))
    for value in accepted:
        done = vemo_flow(folder, option, value, *quick_options)
        assert done.returncode == 0, (value, done.stderr)
        assert vemo.flow(*frames, **dict(quick, **{parameter.name: value}), device="cpu").shape == (4, 4, 2)
        _vemo.check_parameters(**dict(vemo.options.DEFAULTS, **{parameter.name: value}))
        # The batch checks before it looks for inputs: past the checks, the
        # missing input is what it refuses.
        with pytest.raises(ValueError, match="no such file or folder"):
            run_batch([str(tmp_path / "nothing")], str(tmp_path / "out"), **{parameter.name: value})


def test_device_names_threads_and_the_cuda_fallback_agree(tiny, tmp_path):
    folder, frames = tiny
    for device in ("gpu", "cuda:", "cuda:x", "CPU"):
        assert vemo_flow(folder, "--device", device).returncode == 2, device
        with pytest.raises(ValueError, match="device must be auto, cpu, cuda or cuda:N"):
            vemo.Engine(device)
        with pytest.raises(ValueError, match="device must be"):
            run_batch([str(tmp_path)], str(tmp_path / "out"), device=device)
    for threads in (0, 1025):
        assert vemo_flow(folder, "--threads", threads).returncode == 2, threads
        with pytest.raises(ValueError, match="threads must be from 1 to 1024"):
            vemo.Engine(threads=threads)
        with pytest.raises(ValueError, match="threads must be from 1 to 1024"):
            run_batch([str(tmp_path)], str(tmp_path / "out"), threads=threads)
    assert vemo_flow(folder, "--threads", 1024, "--device", "cpu").returncode == 0
    vemo.Engine("cpu", threads=np.int16(1024))
    if _vemo.cuda_devices():
        return  # the fallback needs a machine without a usable GPU
    # A CUDA device that cannot be used: a warning naming it, and the CPU.
    for device in ("cuda", "cuda:3"):
        done = vemo_flow(folder, "--device", device)
        assert done.returncode == 0 and "running on the cpu backend instead" in done.stderr, done.stderr
        with pytest.warns(RuntimeWarning, match="running on the cpu backend instead"):
            assert vemo.Engine(device).device == "cpu"
        with pytest.warns(RuntimeWarning, match="running on the cpu backend instead"):
            assert local_device(device, 0) == ("cpu", 0)  # the batch's local cluster
