"""What a worker does with a chunk: decode its frames once, compute each
pair's flow with the worker's one Engine, write the outputs atomically."""

from __future__ import annotations

import os
import signal
import time
from dataclasses import dataclass, field
from typing import Dict, List, Optional, Tuple

from .. import _vemo
from ..engine import Engine
from ..flo import write_flo
from ..tools import flow_to_rgb
from .plan import Chunk, flow_path, pair_record


@dataclass(frozen=True)
class Settings:
    """How every pair of a batch is computed and written."""

    output: str
    parameters: Dict[str, float] = field(default_factory=dict)  # keyword arguments of Engine.flow
    device: str = "auto"
    threads: Optional[int] = None  # OpenMP threads per worker; None: OpenMP's default
    pictures: bool = False
    gpus: int = 0  # several: each worker takes the GPU of its number


_engines: Dict[Tuple[str, Optional[int]], Engine] = {}


def dask_setup(worker: object) -> None:
    """Run in each worker process of a batch's own cluster (as its preload):
    Ctrl-C at a terminal reaches the whole process group, and the batch, not
    its workers, decides what an interruption stops."""
    signal.signal(signal.SIGINT, signal.SIG_IGN)


def _engine(settings: Settings) -> Engine:
    """The worker's Engine, made by its first chunk and kept for the others."""
    key = (settings.device, settings.threads)
    if key not in _engines:
        if settings.gpus > 1 and "CUDA_VISIBLE_DEVICES" not in os.environ:
            os.environ["CUDA_VISIBLE_DEVICES"] = str(_worker_number() % settings.gpus)
        _engines[key] = Engine(settings.device, settings.threads)
    return _engines[key]


def _worker_number() -> int:
    try:
        from distributed import get_worker

        return int(get_worker().name)
    except (ImportError, ValueError, TypeError):
        return 0


def _frames(chunk: Chunk):
    """Frames first..stop of the chunk, or for each frame that could not be
    read the exception; a reader that stops early or raises fails the frames
    it did not deliver."""
    sequence, wanted = chunk.sequence, chunk.pairs + 1
    delivered = 0
    failure: Exception = RuntimeError(f"{sequence.location} ended before frame {chunk.first + wanted - 1}")
    frames = sequence.reader(sequence, chunk.first, chunk.stop + 1)
    try:
        for frame in frames:
            yield frame
            delivered += 1
            if delivered == wanted:
                return
    except Exception as error:
        failure = error
    finally:
        close = getattr(frames, "close", None)
        if close is not None:
            close()
    for _ in range(delivered, wanted):
        yield failure


def run_chunk(chunk: Chunk, settings: Settings) -> List[dict]:
    """Computes the chunk's pairs; one record per pair (see the manifest)."""
    sequence = chunk.sequence
    frames = _frames(chunk)
    previous = next(frames)
    results = []
    for pair in range(chunk.first, chunk.stop):
        following = next(frames)
        start = time.perf_counter()
        target = flow_path(settings.output, sequence, pair)
        record = pair_record(settings.output, sequence, pair, "computed")
        try:
            for frame in (previous, following):
                if isinstance(frame, Exception):
                    raise frame
            flow = _engine(settings).flow(previous, following, **settings.parameters)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            if settings.pictures:
                # Before the flow: a flow on disk means the pair is complete.
                # The PNG writer replaces its target atomically.
                _vemo.write_png(flow_to_rgb(flow), target[: -len(".flo")] + ".png")
            write_flo(target, flow)
        except Exception as error:
            record["status"] = "failed"
            record["error"] = f"{type(error).__name__}: {error}"
        record["seconds"] = round(time.perf_counter() - start, 4)
        results.append(record)
        previous = following
    return results
