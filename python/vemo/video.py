"""Frames of video files, decoded by FFmpeg's libraries inside the module."""

from __future__ import annotations

from fractions import Fraction
from typing import Iterable, Iterator, Optional

import numpy as np

from . import _vemo
from .options import real_number, shown, whole_number
from .paths import PathLike, readable_file, writable_target

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

    Raises FileNotFoundError for a missing file, IsADirectoryError for a
    folder, ValueError for a device or pipe, and VideoError (a ValueError)
    for a file that is not a video, or a damaged or truncated one, naming
    the file and the frame.
    """
    name = readable_file(path, "video")
    start = whole_number("start", start)
    stop = None if stop is None else whole_number("stop", stop)
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
    video = _vemo.VideoFile(readable_file(path, "video"))
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
    else MPEG-4 Part 2. The file appears under its name only once complete,
    in folders made as needed. Returns the codec in words.

    Raises TypeError for a frame that is not a numpy array, ValueError for
    frames of another shape or size than the first, and OSError or
    VideoError when the file cannot be written.
    """
    rate = Fraction(real_number("fps", fps)).limit_denominator(1001)
    if rate <= 0:
        raise ValueError(f"fps must be above 0, not {shown(fps)}")
    if isinstance(frames, np.ndarray) and (frames.ndim < 3 or (frames.ndim == 3 and frames.shape[2] == 3)):
        raise TypeError(f"frames is one frame of shape {frames.shape}; give a list of frames ([frame] for one)")
    name = writable_target(path, "flow.mp4")
    output = None
    size = None
    for index, frame in enumerate(frames):
        if not isinstance(frame, np.ndarray):
            raise TypeError(f"frame {index} must be a numpy array, not {type(frame).__name__}")
        if frame.ndim not in (2, 3) or (frame.ndim == 3 and frame.shape[2] != 3):
            raise ValueError(f"frame {index} has shape {frame.shape}; frames are H x W x 3 (colour) or H x W (grey)")
        height, width = frame.shape[:2]
        if output is None:
            if width < 1 or height < 1:
                raise ValueError(f"frame 0 is {width} x {height} pixels; a video needs frames of at least 1 x 1")
            size = (width, height)
            output = _vemo.VideoOutput(name, width, height, rate.numerator, rate.denominator, codec)
        elif (width, height) != size:
            raise ValueError(f"frame {index} is {width} x {height} pixels but frame 0 is {size[0]} x {size[1]}: "
                             "the frames of a video keep one size")
        output.write(frame if frame.dtype.isnative else frame.astype(frame.dtype.newbyteorder("=")))
    if output is None:
        raise ValueError("a video needs at least one frame")
    output.finish()
    return output.codec
