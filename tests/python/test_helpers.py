"""The flow-file, colour and evaluation helpers."""

from __future__ import annotations

import json

import numpy as np
import pytest

import vemo
from conftest import run_program


def random_flow(height=6, width=5, seed=0):
    return np.random.default_rng(seed).normal(0, 4, (height, width, 2)).astype(np.float32)


def test_flo_files_round_trip_and_reject_damage(tmp_path):
    flow = random_flow()
    flow[0, 0] = [1e9, np.nan]
    path = tmp_path / "f.flo"
    vemo.write_flo(path, flow)
    data = path.read_bytes()
    assert data[:12] == b"PIEH" + (5).to_bytes(4, "little") + (6).to_bytes(4, "little")
    assert len(data) == 12 + 6 * 5 * 8
    assert np.array_equal(vemo.read_flo(path), flow, equal_nan=True)
    assert not [p for p in tmp_path.iterdir() if p.name != "f.flo"]  # no temporary left behind

    path.write_bytes(data[:-4])
    with pytest.raises(ValueError, match="holds"):
        vemo.read_flo(path)
    path.write_bytes(b"XXXX" + data[4:])
    with pytest.raises(ValueError, match="PIEH"):
        vemo.read_flo(path)
    with pytest.raises(ValueError, match="H x W x 2"):
        vemo.write_flo(path, flow[..., :1])
    # Folders of the target are made; a folder as target, or a file in the
    # way of a folder, is named as such.
    vemo.write_flo(tmp_path / "new" / "deeper" / "g.flo", flow)
    assert np.array_equal(vemo.read_flo(tmp_path / "new" / "deeper" / "g.flo"), flow, equal_nan=True)
    with pytest.raises(IsADirectoryError, match="it is a folder; name a file in it"):
        vemo.write_flo(tmp_path / "new", flow)
    with pytest.raises(NotADirectoryError, match="a file is in the way"):
        vemo.write_flo(path / "g.flo", flow)


def test_files_that_cannot_be_frames_are_named_as_such(tmp_path, capfd):
    with pytest.raises(FileNotFoundError, match="cannot read frame .*missing.png: no such file"):
        vemo.read_frame(tmp_path / "missing.png")
    with pytest.raises(IsADirectoryError, match="it is a folder, not a frame file"):
        vemo.read_frame(tmp_path)
    with pytest.raises(ValueError, match="not a regular file"):
        vemo.read_frame("/dev/null")
    # A file that does not decode: the reason in the exception, nothing on
    # standard error.
    (tmp_path / "notes.png").write_text("not a picture")
    with pytest.raises(OSError, match="notes.png: not a PNG, JPEG"):
        vemo.read_frame(tmp_path / "notes.png")
    assert capfd.readouterr().err == ""


def test_flo_files_interoperate_with_opencv(tmp_path):
    cv2 = pytest.importorskip("cv2")
    flow = random_flow(7, 9)
    vemo.write_flo(tmp_path / "vemo.flo", flow)
    assert np.array_equal(cv2.readOpticalFlow(str(tmp_path / "vemo.flo")), flow)
    assert cv2.writeOpticalFlow(str(tmp_path / "cv.flo"), flow)
    assert np.array_equal(vemo.read_flo(tmp_path / "cv.flo"), flow)
    assert (tmp_path / "cv.flo").read_bytes() == (tmp_path / "vemo.flo").read_bytes()


def test_flow_to_rgb_uses_the_colour_wheel():
    flow = np.zeros((2, 3, 2), np.float32)
    flow[0, 0] = [4, 0]    # right: red
    flow[0, 1] = [0, 4]    # down: the dimmed blue corner
    flow[0, 2] = [-4, 0]   # left: green
    flow[1, 0] = [2, 0]    # half the longest vector: half as bright
    flow[1, 1] = [1e9, 0]  # unknown: black
    rgb = vemo.flow_to_rgb(flow, max_flow=4)
    assert rgb.dtype == np.uint8 and rgb.shape == (2, 3, 3)
    assert rgb[0].tolist() == [[255, 0, 0], [64, 64, 255], [0, 255, 0]]
    assert rgb[1, 0].tolist() == [127, 0, 0] and rgb[1, 1].tolist() == [0, 0, 0]
    # Without max_flow the longest finite vector is fully bright.
    assert np.array_equal(vemo.flow_to_rgb(flow), rgb)
    with pytest.raises(ValueError):
        vemo.flow_to_rgb(flow, max_flow=0)
    # Larger than the largest frame (a view that costs no memory): refused
    # at once, with the limit frames have.
    huge = np.broadcast_to(np.zeros((1, 1, 2), np.float32), (8193, 8192, 2))
    with pytest.raises(ValueError, match="67108864 pixels"):
        vemo.flow_to_rgb(huge)


def test_evaluate_matches_vemo_eval(tmp_path):
    truth = random_flow(20, 30, seed=1)
    truth[0, :5] = 1e9  # unknown ground truth
    flow = truth + random_flow(20, 30, seed=2) * 0.3
    flow[5, :7, 1] = np.nan  # missing vectors
    vemo.write_flo(tmp_path / "flow.flo", flow)
    vemo.write_flo(tmp_path / "truth.flo", truth)
    expected = json.loads(run_program("vemo-eval", "--json", "flow.flo", "truth.flo", cwd=tmp_path).stdout)
    got = vemo.evaluate(flow, truth)
    assert got.keys() == expected.keys()
    for key, value in expected.items():
        if value is None:  # vemo-eval writes NaN (a band without pixels) as null
            assert np.isnan(got[key]), key
        else:
            assert got[key] == pytest.approx(value, rel=1e-8), key
    assert got["missing_vectors"] == 7 and got["measured_vectors"] == 20 * 30 - 5 - 7
    # Missing vectors are not accurate ones.
    assert vemo.evaluate(np.full_like(truth, np.nan), truth)["over_1px"] == 1.0
    with pytest.raises(ValueError, match="truth is"):
        vemo.evaluate(flow, truth[:10])
