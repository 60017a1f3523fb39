"""vemo.batch on a two-worker LocalCluster: same files as one process,
resilient to a dying worker, restartable."""

from __future__ import annotations

import io
import json
import os
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import vemo
from conftest import textured_frames, write_ppm

distributed = pytest.importorskip("distributed")
from vemo.batch import run_batch  # noqa: E402

SEQUENCES = {"walk": (6, (1.5, 0.5)), "city/day": (5, (-1.0, 2.0)), "city/night": (7, (0.5, -0.5))}


@pytest.fixture(scope="module")
def inputs(tmp_path_factory):
    root = tmp_path_factory.mktemp("inputs")
    for seed, (name, (count, shift)) in enumerate(SEQUENCES.items()):
        folder = root / name
        folder.mkdir(parents=True)
        for i, frame in enumerate(textured_frames(count, 64, 48, shift, seed)):
            write_ppm(folder / f"frame_{i + 1:04d}.ppm", frame)
    return root


@pytest.fixture(scope="module")
def expected(inputs):
    """Every pair's flow computed in this process, by relative output path."""
    engine = vemo.Engine("cpu", threads=1)
    flows = {}
    for name, (count, _) in SEQUENCES.items():
        frames = [vemo.read_frame(inputs / name / f"frame_{i + 1:04d}.ppm") for i in range(count)]
        for i in range(count - 1):
            flows[f"{name}/frame_{i + 1:04d}.flo"] = engine.flow(frames[i], frames[i + 1])
    return flows


@pytest.fixture(scope="module")
def client():
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None,
                                       silence_logs=40, env={"VEMO_DEVICE": "cpu"})
    with distributed.Client(cluster) as c:
        yield c
    cluster.close()


def outputs(folder):
    return {os.path.relpath(os.path.join(d, f), folder): os.path.join(d, f)
            for d, _, files in os.walk(folder) for f in files if f.endswith(".flo")}


def check_files(folder, expected):
    found = outputs(folder)
    assert sorted(found) == sorted(expected)
    for name, path in found.items():
        assert np.array_equal(vemo.read_flo(path), expected[name]), name


def test_two_workers_write_the_files_of_one_process(inputs, expected, client, tmp_path):
    result = run_batch([str(inputs)], str(tmp_path), client=client, chunk_size=2, device="cpu", threads=1,
                       progress=False)
    assert result.ok and result.count("computed") == len(expected)
    check_files(tmp_path, expected)
    manifest = json.loads((tmp_path / "vemo-batch.json").read_text())
    assert manifest["counts"]["computed"] == len(expected)
    assert {p["output"] for p in manifest["pairs"]} == set(expected)


def test_a_killed_worker_loses_no_pair(inputs, expected, client, tmp_path):
    killed = []

    def kill_a_busy_worker():
        # Once the first flow is on disk, kill a worker that is running a
        # chunk; Dask runs that chunk again on the other one.
        while not killed:
            busy = [w for w, tasks in client.processing().items() if tasks]
            if outputs(tmp_path) and busy:
                for pid in client.run(os.getpid, workers=busy[:1]).values():
                    os.kill(pid, signal.SIGKILL)
                    killed.append(pid)
                return
            threading.Event().wait(0.002)

    killer = threading.Thread(target=kill_a_busy_worker)
    killer.start()
    result = run_batch([str(inputs)], str(tmp_path), client=client, chunk_size=3, device="cpu", threads=1,
                       progress=False)
    killed.append(None)
    killer.join()
    assert killed[0] is not None, "no worker was killed"
    assert result.ok, result.summary()
    check_files(tmp_path, expected)
    client.wait_for_workers(2, timeout=60)


def test_a_rerun_computes_only_the_missing_pairs(inputs, expected, client, tmp_path):
    run_batch([str(inputs)], str(tmp_path), client=client, chunk_size=4, device="cpu", threads=1, progress=False)
    files = outputs(tmp_path)
    # An interrupted run: one output missing, one cut short.
    os.unlink(files["walk/frame_0003.flo"])
    with open(files["city/night/frame_0005.flo"], "r+b") as f:
        f.truncate(100)
    before = {n: os.stat(p).st_mtime_ns for n, p in outputs(tmp_path).items()}
    result = run_batch([str(inputs)], str(tmp_path), client=client, chunk_size=4, device="cpu", threads=1,
                       progress=False)
    computed = {p["output"] for p in result.pairs if p["status"] == "computed"}
    assert computed == {"walk/frame_0003.flo", "city/night/frame_0005.flo"}
    assert result.count("skipped") == len(expected) - 2
    check_files(tmp_path, expected)
    after = {n: os.stat(p).st_mtime_ns for n, p in outputs(tmp_path).items()}
    assert {n for n in after if before.get(n) != after[n]} == computed


def test_command_reports_a_broken_frame_and_goes_on(tmp_path):
    frames = textured_frames(4, 48, 40)
    for i, frame in enumerate(frames):
        write_ppm(tmp_path / f"{i:02d}.ppm", frame)
    (tmp_path / "02.ppm").write_bytes(b"P6\n48 40\n255\n broken")
    out = tmp_path / "out"
    run = subprocess.run(
        [sys.executable, "-m", "vemo.batch", str(tmp_path), "-o", str(out), "--workers", "1", "--threads", "1",
         "--device", "cpu", "--chunk", "2", "--viz"],
        capture_output=True, text=True, timeout=300,
    )
    assert run.returncode == 1, run.stderr
    assert "1 computed, 0 skipped, 2 failed" in run.stderr
    manifest = json.loads((out / "vemo-batch.json").read_text())
    status = {p["frame1"]: p["status"] for p in manifest["pairs"]}
    assert status == {"00": "computed", "01": "failed", "02": "failed"}
    assert "could not decode" in next(p["error"] for p in manifest["pairs"] if p["frame1"] == "01").lower()
    assert sorted(os.listdir(out)) == ["00.flo", "00.png", "vemo-batch.json", "vemo-settings.json"]


def test_a_rerun_with_other_parameters_neither_skips_nor_mixes_them(inputs, client, tmp_path):
    walk = inputs / "walk"
    run = dict(client=client, chunk_size=3, device="cpu", threads=1, progress=False)
    run_batch([str(walk)], str(tmp_path), **run)
    before = {n: os.stat(p).st_mtime_ns for n, p in outputs(tmp_path).items()}
    with pytest.raises(ValueError, match="5 flows .* made with other settings .*alpha 30.*--overwrite"):
        run_batch([str(walk)], str(tmp_path), alpha=5, solver_iters=50, **run)
    assert {n: os.stat(p).st_mtime_ns for n, p in outputs(tmp_path).items()} == before

    result = run_batch([str(walk)], str(tmp_path), alpha=5, solver_iters=50, overwrite=True, **run)
    assert result.count("computed") == 5
    engine = vemo.Engine("cpu", threads=1)
    frames = [vemo.read_frame(walk / f"frame_{i + 1:04d}.ppm") for i in range(2)]
    assert np.array_equal(vemo.read_flo(tmp_path / "frame_0001.flo"),
                          engine.flow(*frames, alpha=5, solver_iters=50))
    manifest = json.loads((tmp_path / "vemo-batch.json").read_text())
    assert manifest["parameters"]["alpha"] == 5 and manifest["parameters"]["preset"] is None
    again = run_batch([str(walk)], str(tmp_path), alpha=5.0, solver_iters=50, **run)
    assert again.count("skipped") == 5

    # The same values from a preset are other settings: its inner choices differ.
    with pytest.raises(ValueError, match="made with other settings"):
        run_batch([str(walk)], str(tmp_path), preset="fast", alpha=5, solver_iters=50, **run)
    result = run_batch([str(walk)], str(tmp_path), preset="fast", overwrite=True, **run)
    assert np.array_equal(vemo.read_flo(tmp_path / "frame_0001.flo"), engine.flow(*frames, preset="fast"))
    assert json.loads((tmp_path / "vemo-batch.json").read_text())["parameters"]["preset"] == "fast"

    # Flows nobody recorded (made by another program) are not taken for
    # this batch's either.
    (tmp_path / "vemo-settings.json").unlink()
    with pytest.raises(ValueError, match="no record of the settings"):
        run_batch([str(walk)], str(tmp_path), alpha=5, solver_iters=50, **run)


def test_output_inside_the_input_is_not_input_and_gaps_end_the_pairs(client, tmp_path):
    nest = tmp_path / "nest"
    nest.mkdir()
    for number, frame in zip((1, 2, 3, 9, 10), textured_frames(5, 40, 32)):
        write_ppm(nest / f"{number:05d}.ppm", frame)
    notes = io.StringIO()
    for _ in range(2):
        result = run_batch([str(nest)], str(nest / "flows"), client=client, device="cpu", threads=1,
                           pictures=True, progress=notes)
    assert result.ok and result.count("skipped") == 3, result.summary()
    assert sorted(outputs(nest / "flows")) == ["00001.flo", "00002.flo", "00009.flo"]
    assert result.gaps == [{"sequence": "", "before": "00003", "after": "00009"}]
    assert "00003 and 00009 are not consecutive frames" in notes.getvalue()
    with pytest.raises(ValueError, match="lies in the output folder"):
        run_batch([str(nest / "flows")], str(nest), client=client, progress=False)


def test_an_unwritable_output_fails_before_any_work(inputs, tmp_path):
    # A file where an output folder should be; a folder without write
    # permission (root may write anyway, so only where that holds).
    (tmp_path / "walk").write_text("in the way")
    started = time.perf_counter()
    with pytest.raises(NotADirectoryError, match=r"cannot write .*walk"):
        run_batch([str(inputs)], str(tmp_path), device="cpu", progress=False)
    assert time.perf_counter() - started < 5, "a cluster was started"
    assert not (tmp_path / "vemo-batch.json").exists()
    locked = tmp_path / "locked"
    locked.mkdir(mode=0o555)
    if not os.access(locked, os.W_OK):
        with pytest.raises(PermissionError, match="cannot write"):
            run_batch([str(inputs)], str(locked / "out"), device="cpu", progress=False)


@pytest.mark.parametrize("sig, group", [(signal.SIGINT, True), (signal.SIGTERM, False)])
def test_an_interrupted_batch_leaves_whole_outputs_and_a_full_manifest(tmp_path, sig, group):
    frames = tmp_path / "in" / "seq"
    frames.mkdir(parents=True)
    for i, frame in enumerate(textured_frames(14, 320, 240)):
        write_ppm(frames / f"{i:05d}.ppm", frame)
    out = tmp_path / "out"
    command = [sys.executable, "-m", "vemo.batch", str(tmp_path / "in"), "-o", str(out), "--workers", "2",
               "--threads", "1", "--device", "cpu", "--chunk", "1", "--viz"]
    # A new session: the signal goes to the batch alone, or as Ctrl-C at a
    # terminal does, to its whole process group (its workers too).
    batch = subprocess.Popen(command, stderr=subprocess.PIPE, text=True, start_new_session=True)
    deadline = time.monotonic() + 120
    while not outputs(out) and time.monotonic() < deadline:
        time.sleep(0.05)
    (os.killpg if group else os.kill)(batch.pid, sig)
    _, err = batch.communicate(timeout=120)
    assert batch.returncode == 128 + sig, err
    assert "Traceback" not in err, err
    assert err.splitlines()[-1].startswith("vemo.batch: interrupted: "), err
    left = sorted(os.listdir(out / "seq"))
    assert not [n for n in left if n.startswith(".")], left
    manifest = json.loads((out / "vemo-batch.json").read_text())
    computed = {p["output"] for p in manifest["pairs"] if p["status"] == "computed"}
    assert computed == set(outputs(out)) and 0 < len(computed) < 13
    assert manifest["interrupted"] and manifest["counts"]["not run"] == 13 - len(computed)
    if group:
        # The same command computes the rest.
        rerun = subprocess.run(command, capture_output=True, text=True, timeout=300)
        assert rerun.returncode == 0, rerun.stderr
        assert f"{13 - len(computed)} computed, {len(computed)} skipped" in rerun.stderr
