"""The work of a batch: which pairs still need a flow, in chunks of
consecutive pairs of one sequence."""

from __future__ import annotations

import os
from dataclasses import dataclass
from typing import Any, Dict, List, Optional, Tuple

from ..flo import read_flo_header
from .record import Record, same_settings
from .sources import Sequence


@dataclass(frozen=True)
class Chunk:
    """Pairs first..stop-1 of a sequence: frames first..stop, each decoded
    once by the worker that runs the chunk."""

    sequence: Sequence
    first: int
    stop: int

    @property
    def pairs(self) -> int:
        return self.stop - self.first


def flow_path(output: str, sequence: Sequence, pair: int, suffix: str = ".flo") -> str:
    """Where the flow (or, with suffix '.png', the picture) of a pair goes."""
    return os.path.join(output, *[p for p in sequence.name.split("/") if p], sequence.labels[pair] + suffix)


def pair_record(output: str, sequence: Sequence, pair: int, status: str, error: Optional[str] = None) -> dict:
    """A pair's entry in the manifest; the worker adds the seconds it took."""
    record = {
        "sequence": sequence.name,
        "frame1": sequence.labels[pair],
        "frame2": sequence.labels[pair + 1],
        "output": os.path.relpath(flow_path(output, sequence, pair), output),
        "status": status,
        "seconds": 0.0,
    }
    if error is not None:
        record["error"] = error
    return record


def frame_size(sequence: Sequence) -> Optional[Tuple[int, int]]:
    """(width, height) of the sequence's first frame, None when it cannot be read."""
    frames = sequence.reader(sequence, 0, 1)
    try:
        frame = next(frames, None)
    finally:
        close = getattr(frames, "close", None)
        if close is not None:
            close()
    if frame is None or isinstance(frame, Exception):
        return None
    return frame.shape[1], frame.shape[0]


def is_whole(path: str, size: Optional[Tuple[int, int]], picture: bool) -> bool:
    """Whether a pair's outputs exist and are whole: a .flo of the frames'
    size (and its picture, when pictures are asked for)."""
    if size is None:
        return False
    try:
        if read_flo_header(path) != size:
            return False
    except (OSError, ValueError):
        return False
    return not picture or os.path.isfile(path[: -len(".flo")] + ".png")


@dataclass
class Plan:
    chunks: List[Chunk]
    """Chunks of up to chunk_size consecutive pairs that need computing."""
    done: List[Tuple[Sequence, int]]
    """Pairs whose outputs are whole and were made with these settings."""
    stale: List[Tuple[Sequence, int]]
    """Pairs whose outputs are whole but were made with other settings, or
    with none recorded; with overwrite they are in the chunks too."""


def plan(sequences: List[Sequence], output: str, chunk_size: int, pictures: bool, settings: Dict[str, Any],
         record: Record, overwrite: bool = False) -> Plan:
    """What a batch has to compute: the pairs whose outputs are missing or
    damaged and, with overwrite, those made with other settings."""
    if chunk_size < 1:
        raise ValueError(f"chunk_size must be at least 1, not {chunk_size}")
    result = Plan([], [], [])
    for sequence in sequences:
        size = frame_size(sequence) if sequence.pairs else None
        start = None
        for pair in range(sequence.pairs + 1):
            missing = False
            if pair < sequence.pairs:
                path = flow_path(output, sequence, pair)
                if not is_whole(path, size, pictures):
                    missing = True
                elif same_settings(record.made_with(os.path.relpath(path, output)), settings):
                    result.done.append((sequence, pair))
                else:
                    result.stale.append((sequence, pair))
                    missing = overwrite
            if missing and start is None:
                start = pair
            if start is not None and (not missing or pair - start == chunk_size):
                result.chunks.append(Chunk(sequence, start, pair))
                start = pair if missing else None
    return result
