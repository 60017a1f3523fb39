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


def test_batch_of_a_clip_equals_vemo_flow_video(clip, tmp_path):
    path, _ = clip
    (tmp_path / "cli").mkdir()
    run_program("vemo-flow", "--video", path, "-o", tmp_path / "cli" / "%05d.flo", "--threads", "1", "-q")
    from vemo.batch import run_batch

    run_batch([str(path.parent)], str(tmp_path / "batch"), workers=1, device="cpu", threads=1)
    for pair in range(4):
        by_batch = vemo.read_flo(tmp_path / "batch" / "walk" / f"{pair:05d}.flo")
        assert np.array_equal(by_batch, vemo.read_flo(tmp_path / "cli" / f"{pair:05d}.flo")), pair
