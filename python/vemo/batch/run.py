"""A batch on a Dask cluster: plan, submit the chunks, collect the pairs'
records, write the manifest and the summary."""

from __future__ import annotations

import json
import logging
import os
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass
from typing import Any, Dict, List, Optional, Sequence as Seq, TextIO, Tuple

from ..options import check_device, check_parameters, check_threads, warn_fallback, whole_number
from .plan import Chunk, pair_record, plan
from .progress import Progress
from .sources import discover
from .work import Settings, run_chunk

MANIFEST = "vemo-batch.json"


@dataclass
class BatchResult:
    """Every planned pair with its status: "computed", "skipped" (a valid
    output was there already), "failed" (with "error") or "not run" (the
    batch was interrupted), and the seconds it took."""

    pairs: List[Dict[str, Any]]
    seconds: float
    manifest: str

    def count(self, status: str) -> int:
        return sum(1 for p in self.pairs if p["status"] == status)

    @property
    def failed(self) -> List[Dict[str, Any]]:
        return [p for p in self.pairs if p["status"] == "failed"]

    @property
    def ok(self) -> bool:
        return all(p["status"] in ("computed", "skipped") for p in self.pairs)

    def summary(self) -> str:
        computed = self.count("computed")
        rate = f", {computed / self.seconds:.2f} pairs/s" if computed and self.seconds > 0 else ""
        lines = [
            f"vemo.batch: {len(self.pairs)} pairs: {computed} computed, {self.count('skipped')} skipped, "
            f"{self.count('failed')} failed, {self.count('not run')} not run in {self.seconds:.1f} s{rate}"
        ]
        lines += [f"  failed: {p['output']}: {p['error']}" for p in self.failed]
        return "\n".join(lines)


def usable_gpus() -> int:
    """CUDA GPUs this build can use, asked in a child process so that this
    one makes no CUDA context of its own."""
    try:
        answer = subprocess.run(
            [sys.executable, "-c", "from vemo import _vemo; print(_vemo.cuda_devices())"],
            capture_output=True, text=True, timeout=120,
        )
        return int(answer.stdout.strip() or 0)
    except (OSError, ValueError, subprocess.SubprocessError):
        return 0


def _local_device(device: str, gpus: int) -> Tuple[str, int]:
    """The device the workers of a local cluster use and the GPUs they share
    out: a CUDA device that this machine cannot use gives the warning
    vemo-flow gives and the CPU, as there; one named device (cuda:N) is not
    shared out."""
    number = int(device[5:]) if device.startswith("cuda:") else 0
    if device.startswith("cuda") and number >= gpus:
        warn_fallback(device, f"cannot use {device}: " + (f"this machine has {gpus} usable CUDA GPUs" if gpus
                                                          else "no usable CUDA GPU was found"), stacklevel=4)
        return "cpu", 0
    return device, 0 if device.startswith("cuda:") else gpus


def _write_manifest(path: str, result: BatchResult, parameters: Dict[str, Any]) -> None:
    document = {
        "parameters": parameters,
        "seconds": round(result.seconds, 3),
        "counts": {s: result.count(s) for s in ("computed", "skipped", "failed", "not run")},
        "pairs": result.pairs,
    }
    folder = os.path.dirname(os.path.abspath(path))
    os.makedirs(folder, exist_ok=True)
    fd, temp = tempfile.mkstemp(prefix=".vemo-", suffix=".json.tmp", dir=folder)
    with os.fdopen(fd, "w") as f:
        json.dump(document, f, indent=1)
    os.replace(temp, path)


def run_batch(
    inputs: Seq[str],
    output: str,
    *,
    client: Any = None,
    scheduler: Optional[str] = None,
    workers: Optional[int] = None,
    chunk_size: int = 8,
    pictures: bool = False,
    manifest: Optional[str] = None,
    device: str = "auto",
    threads: Optional[int] = None,
    progress: Optional[TextIO] = None,
    retries: int = 2,
    sigma: float = 0.8,
    alpha: float = 30,
    beta: float = 300,
    gamma: float = 5,
    eta: float = 0.95,
    fixed_point_iters: int = 5,
    solver_iters: int = 10,
) -> BatchResult:
    """Computes the flow of every consecutive pair of the sequences under
    ``inputs`` (folders of numbered frames and video files, searched recursively) into
    ``output``, whose folders mirror the input's.

    The cluster: ``client`` (a ``dask.distributed.Client``), else
    ``scheduler`` (``tcp://HOST:PORT``), else a LocalCluster of ``workers``
    processes (default: one per core, or one per GPU where GPUs are usable),
    each running ``threads`` OpenMP threads (default: cores / workers).
    ``device`` is auto, cpu, cuda or cuda:N, as for :class:`vemo.Engine`: a
    CUDA device this machine cannot use gives a RuntimeWarning and the CPU.
    The method's parameters are those of :func:`vemo.flow`.

    Work goes out in chunks of up to ``chunk_size`` consecutive pairs of one
    sequence; a chunk whose worker dies is run again elsewhere (Dask's own
    rescheduling; ``retries`` more times when it raises). Pairs with a valid
    ``.flo`` of the frames' size (and, with ``pictures``, a picture) are
    skipped, so a rerun after an interruption computes only what is missing.
    Outputs are written atomically. A failed pair is recorded and the others
    go on. Every pair's status and time go to the JSON ``manifest`` (default
    ``output/vemo-batch.json``). Progress goes to ``progress`` (default
    standard error; ``False`` for none).

    Raises TypeError or ValueError for settings of a wrong type or out of
    range, and ValueError when an input does not exist or holds no sequence.
    """
    start = time.perf_counter()
    output = os.path.abspath(output)
    manifest = manifest or os.path.join(output, MANIFEST)
    # Bad settings fail here, once, rather than in every pair.
    parameters = check_parameters(sigma=sigma, alpha=alpha, beta=beta, gamma=gamma, eta=eta,
                                  fixed_point_iters=fixed_point_iters, solver_iters=solver_iters)
    device = check_device(device)
    threads = check_threads(threads)
    chunk_size = whole_number("chunk_size", chunk_size)
    if workers is not None and whole_number("workers", workers) < 1:
        raise ValueError(f"workers must be at least 1, not {workers}")

    sequences = discover(inputs)
    if not sequences:
        raise ValueError("no sequence of two or more numbered frames under " + ", ".join(inputs))
    chunks, done = plan(sequences, output, chunk_size, pictures)
    pairs: List[Dict[str, Any]] = []
    for sequence, pair in done:
        pairs.append(pair_record(output, sequence, pair, "skipped"))

    own_client = own_cluster = None
    gpus = 0
    try:
        if chunks:
            if client is None:
                from distributed import Client, LocalCluster

                if scheduler is not None:
                    client = own_client = Client(scheduler)
                else:
                    gpus = usable_gpus() if device != "cpu" else 0
                    device, gpus = _local_device(device, gpus)
                    workers = workers or gpus or os.cpu_count() or 1
                    threads = threads or max(1, (os.cpu_count() or 1) // workers)
                    own_cluster = LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                                               dashboard_address=None, silence_logs=logging.ERROR)
                    client = own_client = Client(own_cluster)
            pairs += _compute(client, chunks, Settings(output, parameters, device, threads, pictures, gpus),
                              retries, progress, output)
    finally:
        if own_client is not None:
            own_client.close()
        if own_cluster is not None:
            own_cluster.close()
        order = {(s.name, label): i for s in sequences for i, label in enumerate(s.labels)}
        pairs.sort(key=lambda p: (p["sequence"], order.get((p["sequence"], p["frame1"]), 0)))
        result = BatchResult(pairs, time.perf_counter() - start, manifest)
        _write_manifest(manifest, result, dict(parameters, device=device, chunk_size=chunk_size, pictures=pictures))
    return result


def _compute(client: Any, chunks: List[Chunk], settings: Settings, retries: int, stream: Any,
             output: str) -> List[Dict[str, Any]]:
    """Submits the chunks and collects their records as they finish; on an
    interruption the unfinished chunks' pairs come back as "not run"."""
    from distributed import as_completed

    futures = {
        client.submit(run_chunk, chunk, settings, pure=False, retries=retries): chunk for chunk in chunks
    }
    show = stream is not False
    progress = Progress(sum(c.pairs for c in chunks), None if stream in (None, False) else stream)
    records: List[Dict[str, Any]] = []
    finished = set()
    try:
        for future in as_completed(futures):
            chunk = futures[future]
            try:
                chunk_records = future.result()
            except Exception as error:  # the chunk could not run at all (its worker kept dying, ...)
                message = f"{type(error).__name__}: {error}"
                chunk_records = [pair_record(output, chunk.sequence, p, "failed", message)
                                 for p in range(chunk.first, chunk.stop)]
            records += chunk_records
            finished.add(future)
            if show:
                failed = sum(1 for r in chunk_records if r["status"] == "failed")
                name = chunk.sequence.name or "."
                progress.chunk_done(f"{name} {chunk.sequence.labels[chunk.first]}..{chunk.sequence.labels[chunk.stop]}",
                                    chunk.pairs, failed)
    finally:
        for future, chunk in futures.items():
            if future not in finished:
                future.cancel()
                records += [pair_record(output, chunk.sequence, p, "not run") for p in range(chunk.first, chunk.stop)]
        if show:
            progress.finish()
    return records
