"""Frames of video files, decoded by FFmpeg's libraries inside the module."""

from __future__ import annotations

import os
from fractions import Fraction
from typing import Iterable, Iterator, Optional

import numpy as np

from . import _vemo
from .flo import PathLike

VideoError = _vemo.VideoError

VIDEO_SUFFIXES = (".mp4", ".m4v", ".mov", ".mkv", ".webm", ".avi", ".mpg", ".mpeg", ".ts", ".flv", ".wmv", ".nut")


def video_supported() -> bool:
    """Whether this build of the module reads video (it needs FFmpeg's
    libraries at build time)."""
    return bool(_vemo.video_supported())


def read_video(path: PathLike, start: int = 0, stop: Optional[int] = None) -> Iterator[np.ndarray]:
    """Yields frames ``start`` to ``stop - 1`` (all to the end when ``stop``
    is None) of a video file as float32 H x W x 3 arrays on the 0..255 scale,
    the frames ``vemo-flow --video`` computes with. Each frame is decoded
    once; frames before ``start`` are decoded but not converted.

    Raises FileNotFoundError for a missing file and VideoError (a
    ValueError) for a file that is not a video, or a damaged or truncated
    one, naming the file and the frame.
    """
    name = os.fspath(path)
    if not os.path.isfile(name):
        raise FileNotFoundError(f"no such video: {name}")
    if start < 0 or (stop is not None and stop < start):
        raise ValueError(f"frames {start} to {stop} are not a range of a video")
    video = _vemo.VideoFile(name)
    for _ in range(start):
        if not video.skip():
            return
    index = start
    while stop is None or index < stop:
        frame = video.read()
        if frame is None:
            return
        yield frame
        index += 1


def count_frames(path: PathLike) -> int:
    """The number of frames of a video: what its container announces, or,
    where it announces nothing, what decoding the whole file finds."""
    name = os.fspath(path)
    video = _vemo.VideoFile(name)
    if video.frame_count >= 0:
        return int(video.frame_count)
    while video.skip():
        pass
    return int(video.frames_decoded)


def write_video(path: PathLike, frames: Iterable[np.ndarray], fps: float = 25.0, codec: str = "") -> str:
    """Writes frames (H x W x 3 or H x W arrays of uint8, uint16 or float32
    on the 0..255 scale, all of one size) as a video whose container follows
    the extension (.mp4, .mkv, .avi, ...). ``codec`` names an FFmpeg encoder
    ("ffv1" for lossless, ...); empty picks H.264 where this FFmpeg has it,
    else MPEG-4 Part 2. The file appears under its name only once complete.
    Returns the codec in words.
    """
    rate = Fraction(fps).limit_denominator(1001)
    if rate <= 0:
        raise ValueError(f"fps must be above 0, not {fps}")
    output = None
    for frame in frames:
        if output is None:
            output = _vemo.VideoOutput(os.fspath(path), frame.shape[1], frame.shape[0], rate.numerator,
                                       rate.denominator, codec)
        output.write(frame)
    if output is None:
        raise ValueError("a video needs at least one frame")
    output.finish()
    return output.codec
