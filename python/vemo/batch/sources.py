"""Frame sources: where the sequences of a batch come from.

A frame source is a pair of functions. Its *discoverer* looks at one folder
of the input and returns the sequences it finds there; its *reader* yields
the frames of a stretch of one sequence, each decoded once. Folders of
numbered frames and video files are built in; other kinds of input plug in
with :func:`register_source`.
"""

from __future__ import annotations

import os
import re
from dataclasses import dataclass
from typing import Callable, Iterator, List, Optional, Sequence as Seq, Union

import numpy as np

from ..tools import read_frame
from ..video import VIDEO_SUFFIXES, count_frames, read_video, video_supported

# A frame, or the exception that kept it from being read (its pairs fail,
# the others go on).
FrameOrError = Union[np.ndarray, Exception]


@dataclass(frozen=True)
class Sequence:
    """One sequence of frames, whose consecutive pairs get a flow each."""

    name: str
    """Where its outputs go, relative to the output folder ('' for the folder
    itself), with '/' between folder names."""
    location: str
    """What the reader opens: a folder, a file."""
    frames: tuple
    """Per frame, what the reader needs to find it (file names, indices)."""
    labels: tuple
    """Per frame, the name of the pair that starts there (its flow is
    ``labels[i] + '.flo'``)."""
    reader: Callable[["Sequence", int, int], Iterator[FrameOrError]]
    """Yields frames first..stop-1 as float32 H x W x 3 arrays (0..255) or,
    for a frame that cannot be read, the exception. A top-level function, so
    that workers can import it."""
    after_gap: str = ""
    """The label of the frame before a gap in the numbering that this
    sequence follows ('' when it follows none): no flow spans the gap."""

    @property
    def pairs(self) -> int:
        return max(len(self.frames) - 1, 0)


# discover(folder, file_names, name) -> sequences found among the files of
# one folder; `name` is the folder's place in the output ('' or 'a/b').
Discoverer = Callable[[str, List[str], str], List[Sequence]]

_discoverers: List[Discoverer] = []


def register_source(discover: Discoverer) -> None:
    """Adds a kind of input: ``discover`` is called for every folder of the
    input (and for a file given as input, with its folder and that file
    alone) and returns the sequences whose readers it chooses."""
    if discover not in _discoverers:
        _discoverers.append(discover)


IMAGE_SUFFIXES = (".png", ".jpg", ".jpeg", ".ppm", ".pgm", ".pnm")
_NUMBERED = re.compile(r"^(.*?)(\d+)$")


def read_numbered_frames(sequence: Sequence, first: int, stop: int) -> Iterator[FrameOrError]:
    """Frames of a folder of image files, one file each."""
    for file_name in sequence.frames[first:stop]:
        try:
            yield read_frame(os.path.join(sequence.location, file_name))
        except Exception as error:  # a broken frame fails its own pairs only
            yield error


def find_numbered_frames(folder: str, files: List[str], name: str) -> List[Sequence]:
    """The numbered image files of a folder (frame_0001.png, 17.ppm, ...):
    one sequence per prefix and suffix, in the order of the numbers."""
    groups: dict = {}
    for file_name in files:
        stem, suffix = os.path.splitext(file_name)
        match = _NUMBERED.match(stem)
        if suffix.lower() not in IMAGE_SUFFIXES or match is None:
            continue
        groups.setdefault((match.group(1), suffix), []).append((int(match.group(2)), stem, file_name))
    found = []
    for key in sorted(groups):
        numbered = sorted(groups[key])
        # A gap in the numbers (or a number given twice) ends a run of
        # frames: the frames on either side are not neighbours in time.
        runs = [[numbered[0]]]
        for previous, frame in zip(numbered, numbered[1:]):
            if frame[0] == previous[0] + 1:
                runs[-1].append(frame)
            else:
                runs.append([frame])
        for i, run in enumerate(runs):
            gap = runs[i - 1][-1][1] if i > 0 else ""
            if len(run) < 2 and not gap:
                continue
            found.append(
                Sequence(
                    name=name,
                    location=folder,
                    frames=tuple(f for _, _, f in run),
                    labels=tuple(s for _, s, _ in run),
                    reader=read_numbered_frames,
                    after_gap=gap,
                )
            )
    return found


register_source(find_numbered_frames)


def read_video_frames(sequence: Sequence, first: int, stop: int) -> Iterator[FrameOrError]:
    """Frames of a video file; frames before ``first`` are decoded, not
    converted. A damaged stretch raises, failing the frames not delivered."""
    yield from read_video(sequence.location, sequence.frames[first], sequence.frames[stop - 1] + 1)


def find_videos(folder: str, files: List[str], name: str) -> List[Sequence]:
    """The video files of a folder (by extension): one sequence each, whose
    outputs go to a folder named after the file (clip.mp4 -> clip/00000.flo,
    numbered by the first frame of each pair, as vemo-flow --video does)."""
    if not video_supported():
        return []
    found = []
    for file_name in files:
        stem, suffix = os.path.splitext(file_name)
        if suffix.lower() not in VIDEO_SUFFIXES:
            continue
        path = os.path.join(folder, file_name)
        try:
            frames = count_frames(path)
        except ValueError as error:
            # Reported as the failure of the clip's first pair, so that the
            # summary and the manifest name it and the other inputs go on.
            found.append(_unreadable(name, stem, path, error))
            continue
        if frames < 2:
            continue
        found.append(
            Sequence(
                name="/".join(p for p in [name, stem] if p),
                location=path,
                frames=tuple(range(frames)),
                labels=tuple(f"{i:05d}" for i in range(frames)),
                reader=read_video_frames,
            )
        )
    return found


def _fail_frames(sequence: Sequence, first: int, stop: int) -> Iterator[FrameOrError]:
    for _ in range(first, stop):
        yield sequence.error  # type: ignore[attr-defined]


@dataclass(frozen=True)
class _UnreadableSequence(Sequence):
    error: Exception = None  # type: ignore[assignment]


def _unreadable(name: str, stem: str, path: str, error: Exception) -> Sequence:
    return _UnreadableSequence(
        name="/".join(p for p in [name, stem] if p),
        location=path,
        frames=(0, 1),
        labels=("00000", "00001"),
        reader=_fail_frames,
        error=error,
    )


register_source(find_videos)


def discover(inputs: Seq[str], output: Optional[str] = None) -> List[Sequence]:
    """Every sequence under the inputs (folders, searched recursively, or
    files). With one input the output mirrors its tree; with several, each
    input's tree goes under the input's own name. Nothing in the folder
    ``output`` is taken as input (a batch writing into its own input folder
    would otherwise take its pictures for frames on the next run).
    ValueError when two sequences would write to the same files, an input
    does not exist or lies in the output folder."""
    excluded = os.path.realpath(output) if output is not None else None
    sequences: List[Sequence] = []
    for root in inputs:
        root = os.path.abspath(root)
        if excluded is not None and _inside(os.path.realpath(root), excluded):
            raise ValueError(f"the input {root} lies in the output folder {output}")
        top = "" if len(inputs) == 1 else os.path.basename(root.rstrip(os.sep))
        if os.path.isfile(root):
            sequences += _discover_in(os.path.dirname(root), [os.path.basename(root)], top)
            continue
        if not os.path.isdir(root):
            raise ValueError(f"no such file or folder: {root}")
        for folder, subfolders, files in os.walk(root):
            subfolders[:] = sorted(d for d in subfolders
                                   if excluded is None or os.path.realpath(os.path.join(folder, d)) != excluded)
            relative = os.path.relpath(folder, root)
            name = "/".join(p for p in [top, "" if relative == "." else relative.replace(os.sep, "/")] if p)
            sequences += _discover_in(folder, sorted(files), name)
    seen: dict = {}
    for s in sequences:
        for label in s.labels[:-1]:
            key = (s.name, label)
            if key in seen:
                raise ValueError(f"two sequences would both write {s.name}/{label}.flo ({seen[key]} and {s.location})")
            seen[key] = s.location
    return sequences


def _inside(path: str, folder: str) -> bool:
    return path == folder or path.startswith(folder.rstrip(os.sep) + os.sep)


def _discover_in(folder: str, files: List[str], name: str) -> List[Sequence]:
    found = []
    for discoverer in _discoverers:
        found += discoverer(folder, files, name)
    return found
