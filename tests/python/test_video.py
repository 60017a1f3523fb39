"""Video files from Python: frames as vemo-flow --video decodes them, and
batches over clips that give vemo-flow --video's flows."""

from __future__ import annotations

import numpy as np
import pytest

import vemo
from conftest import run_program, textured_frames

if not vemo.video.video_supported():
    pytest.skip("this build has no video support", allow_module_level=True)


@pytest.fixture(scope="module")
def clip(tmp_path_factory):
    """A lossless 5-frame clip of a moving texture, and its frames."""
    frames = textured_frames(5, 64, 48, (1.5, -0.5), seed=3)
    path = tmp_path_factory.mktemp("clip") / "walk.mkv"
    assert "ffv1" in vemo.write_video(path, frames, fps=12.5, codec="ffv1").lower()
    return path, frames


def test_read_video_gives_the_frames_back_and_its_ranges(clip):
    path, frames = clip
    decoded = list(vemo.read_video(path))
    assert len(decoded) == len(frames)
    for got, want in zip(decoded, frames):
        assert got.dtype == np.float32 and np.array_equal(got, want.astype(np.float32))
    middle = list(vemo.read_video(path, start=2, stop=4))
    assert len(middle) == 2 and np.array_equal(middle[0], decoded[2])
    with pytest.raises(FileNotFoundError):
        next(vemo.read_video(path.with_name("missing.mp4")))


def test_a_file_that_is_not_a_video_raises_video_error(tmp_path):
    fake = tmp_path / "fake.mp4"
    fake.write_bytes(b"this is not a video" * 20)
    with pytest.raises(vemo.VideoError, match="fake.mp4"):
        next(vemo.read_video(fake))
    assert issubclass(vemo.VideoError, ValueError)
    with pytest.raises(IsADirectoryError, match="it is a folder, not a video file"):
        next(vemo.read_video(tmp_path))
    with pytest.raises(ValueError, match="not a regular file"):
        next(vemo.read_video("/dev/null"))


def test_write_video_refuses_what_is_not_a_list_of_frames_of_one_size(tmp_path, capfd):
    frame = np.zeros((8, 6, 3), np.uint8)
    target = tmp_path / "v.mp4"
    with pytest.raises(TypeError, match="frame 0 must be a numpy array, not list"):
        vemo.write_video(target, [frame.tolist()])
    with pytest.raises(TypeError, match="give a list of frames"):
        vemo.write_video(target, frame)
    with pytest.raises(ValueError, match="frame 0 is 0 x 0 pixels; a video needs frames of at least 1 x 1"):
        vemo.write_video(target, [np.zeros((0, 0, 3), np.uint8)])
    with pytest.raises(ValueError, match="frame 1 is 6 x 4 pixels but frame 0 is 6 x 8"):
        vemo.write_video(target, [frame, frame[:4]])
    with pytest.raises(IsADirectoryError, match="it is a folder"):
        vemo.write_video(tmp_path, [frame])
    (tmp_path / "file").write_text("x")
    with pytest.raises(NotADirectoryError, match="a file is in the way"):
        vemo.write_video(tmp_path / "file" / "v.mp4", [frame])
    assert not target.exists()
    # The smallest frames, in a folder that does not exist yet.
    vemo.write_video(tmp_path / "new" / "tiny.mkv", [np.full((1, 1, 3), 9, np.uint8)] * 2)
    assert len(list(vemo.read_video(tmp_path / "new" / "tiny.mkv"))) == 2
    assert capfd.readouterr().err == ""


def test_batch_of_a_clip_equals_vemo_flow_video(clip, tmp_path):
    path, _ = clip
    (tmp_path / "cli").mkdir()
    run_program("vemo-flow", "--video", path, "-o", tmp_path / "cli" / "%05d.flo", "--threads", "1", "-q")
    from vemo.batch import run_batch

    run_batch([str(path.parent)], str(tmp_path / "batch"), workers=1, device="cpu", threads=1)
    for pair in range(4):
        by_batch = vemo.read_flo(tmp_path / "batch" / "walk" / f"{pair:05d}.flo")
        assert np.array_equal(by_batch, vemo.read_flo(tmp_path / "cli" / f"{pair:05d}.flo")), pair
