"""A batch on a Dask cluster: plan, submit the chunks, collect the pairs'
records, write the manifest and the summary."""

from __future__ import annotations

import logging
import os
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass, field
from typing import Any, Dict, List, Optional, Sequence as Seq, Set, TextIO, Tuple

from ..options import check_device, check_threads, resolve_parameters, warn_fallback, whole_number
from .plan import Chunk, flow_path, frame_size, is_whole, pair_record, plan
from .progress import Progress
from .record import Record, describe, settings_of, write_json
from .sources import Sequence, discover
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
    gaps: List[Dict[str, str]] = field(default_factory=list)
    """Gaps in the frame numbers: sequence, the frames before and after."""
    interrupted: bool = False

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
    write_json(path, {
        "parameters": parameters,
        "seconds": round(result.seconds, 3),
        "interrupted": result.interrupted,
        "counts": {s: result.count(s) for s in ("computed", "skipped", "failed", "not run")},
        "gaps": result.gaps,
        "pairs": result.pairs,
    })


class BatchInterrupted(KeyboardInterrupt):
    """A batch stopped by KeyboardInterrupt (Ctrl-C; ``python -m vemo.batch``
    turns SIGTERM into one too), raised once the manifest is written:
    ``result`` holds every pair, those not computed as "not run"."""

    def __init__(self, result: BatchResult) -> None:
        super().__init__("the batch was interrupted")
        self.result = result


def check_writable(folders: Seq[str]) -> None:
    """Fails before any work when an output folder cannot take files: the
    folder, or where it does not exist yet the nearest folder above it, must
    be a folder in which a file can be made. Raises OSError naming both."""
    tried: Dict[str, Optional[OSError]] = {}
    for folder in folders:
        existing = folder
        while not os.path.exists(existing) and os.path.dirname(existing) != existing:
            existing = os.path.dirname(existing)
        if existing not in tried:
            tried[existing] = None
            try:
                if not os.path.isdir(existing):
                    raise NotADirectoryError("not a folder")
                fd, probe = tempfile.mkstemp(prefix=".vemo-", suffix=".probe", dir=existing)
                os.close(fd)
                os.unlink(probe)
            except OSError as error:
                tried[existing] = error
        error = tried[existing]
        if error is not None:
            where = "" if existing == folder else f" (in {existing})"
            raise type(error)(f"cannot write {folder}{where}: {error.strerror or error}")


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
    overwrite: bool = False,
    device: str = "auto",
    threads: Optional[int] = None,
    progress: Optional[TextIO] = None,
    retries: int = 2,
    preset: Optional[str] = None,
    sigma: Optional[float] = None,
    alpha: Optional[float] = None,
    beta: Optional[float] = None,
    gamma: Optional[float] = None,
    eta: Optional[float] = None,
    fixed_point_iters: Optional[int] = None,
    solver_iters: Optional[int] = None,
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
    The preset and the method's parameters are those of :func:`vemo.flow`.

    Work goes out in chunks of up to ``chunk_size`` consecutive pairs of one
    sequence; a chunk whose worker dies is run again elsewhere (Dask's own
    rescheduling; ``retries`` more times when it raises). Pairs with a valid
    ``.flo`` of the frames' size (and, with ``pictures``, a picture) made
    with these parameters are skipped, so a rerun after an interruption
    computes only what is missing. The parameters of every output are
    recorded in ``output/vemo-settings.json``; outputs made with others
    make the batch refuse before any work, unless ``overwrite`` asks to
    recompute them. Frame numbers with a gap end a sequence there: no flow
    spans the gap, and the gap is reported. Nothing in ``output`` is taken
    as input. Outputs are written atomically. A failed pair is recorded and
    the others go on. Every pair's status and time go to the JSON
    ``manifest`` (default ``output/vemo-batch.json``). Progress and notes go
    to ``progress`` (default standard error; ``False`` for none).

    Raises TypeError or ValueError for settings of a wrong type or out of
    range, ValueError when an input does not exist or holds no sequence, or
    outputs were made with other parameters; OSError when an output folder
    cannot be written (before any work); BatchInterrupted (a
    KeyboardInterrupt) after the manifest is written when interrupted.
    """
    start = time.perf_counter()
    output = os.path.abspath(output)
    manifest = os.path.abspath(manifest or os.path.join(output, MANIFEST))
    # Bad settings fail here, once, rather than in every pair.
    preset, parameters = resolve_parameters(preset, sigma=sigma, alpha=alpha, beta=beta, gamma=gamma, eta=eta,
                                            fixed_point_iters=fixed_point_iters, solver_iters=solver_iters)
    # The default preset is the method itself: its flows are those of the
    # parameters alone, as recorded before there were presets.
    settings = settings_of(parameters, None if preset == "default" else preset)
    device = check_device(device)
    threads = check_threads(threads)
    chunk_size = whole_number("chunk_size", chunk_size)
    if workers is not None and whole_number("workers", workers) < 1:
        raise ValueError(f"workers must be at least 1, not {workers}")

    sequences = discover(inputs, output)
    if not any(s.pairs for s in sequences):
        raise ValueError("no sequence of two or more numbered frames under " + ", ".join(inputs))
    check_writable([output, os.path.dirname(manifest)] +
                   sorted({os.path.dirname(flow_path(output, s, 0)) for s in sequences if s.pairs}))
    record = Record(output)
    work = plan(sequences, output, chunk_size, pictures, settings, record, overwrite)
    if work.stale and not overwrite:
        raise ValueError(_stale_message(work.stale, record, output, settings))
    # The outputs about to be replaced go first; then the record names the
    # settings of everything about to be written.
    for chunk in work.chunks:
        for pair in range(chunk.first, chunk.stop):
            path = flow_path(output, chunk.sequence, pair)
            for old in (path, path[: -len(".flo")] + ".png"):
                if os.path.lexists(old):
                    os.unlink(old)
            record.outputs[os.path.relpath(path, output)] = settings
    if work.chunks:
        record.save()

    pairs: List[Dict[str, Any]] = [pair_record(output, s, p, "skipped") for s, p in work.done]
    gaps = [{"sequence": s.name, "before": s.after_gap, "after": s.labels[0]} for s in sequences if s.after_gap]
    if progress is not False:
        for gap in gaps:
            print(f"vemo.batch: note: {'/'.join(p for p in [gap['sequence'], gap['before']] if p)} and "
                  f"{gap['after']} are not consecutive frames: no flow between them",
                  file=progress if progress is not None else sys.stderr)
    own_client = own_cluster = None
    gpus = 0
    interrupted = False
    try:
        if work.chunks:
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
                                               dashboard_address=None, silence_logs=logging.CRITICAL,
                                               preload=["vemo.batch.work"])
                    client = own_client = Client(own_cluster)
            _compute(client, work.chunks, Settings(output, dict(parameters, preset=preset), device, threads, pictures,
                                                   gpus),
                     retries, progress, output, pairs)
    except KeyboardInterrupt:
        interrupted = True
    finally:
        _close(own_client, own_cluster)
        recorded = {(p["sequence"], p["frame1"]) for p in pairs}
        unfinished = [(c, p) for c in work.chunks for p in range(c.first, c.stop)
                      if (c.sequence.name, c.sequence.labels[p]) not in recorded]
        if own_cluster is not None:
            # Its workers are gone: what they were writing when they stopped
            # is no output.
            _remove_partial_files([flow_path(output, c.sequence, p) for c, p in unfinished])
        # A pair whose chunk did not report back may have its outputs all
        # the same (written just before the interruption): the record names
        # this run's settings for them, so they count as computed.
        sizes: Dict[int, Optional[Tuple[int, int]]] = {}
        for c, p in unfinished:
            if id(c.sequence) not in sizes:
                sizes[id(c.sequence)] = frame_size(c.sequence)
            whole = is_whole(flow_path(output, c.sequence, p), sizes[id(c.sequence)], pictures)
            pairs.append(pair_record(output, c.sequence, p, "computed" if whole else "not run"))
        # Frame order, across the pieces of a sequence split at gaps too.
        order = {key: i for i, key in enumerate((s.name, label) for s in sequences for label in s.labels)}
        pairs.sort(key=lambda p: (p["sequence"], order.get((p["sequence"], p["frame1"]), 0)))
        result = BatchResult(pairs, time.perf_counter() - start, manifest, gaps, interrupted)
        _write_manifest(manifest, result, dict(parameters, preset=settings["preset"], device=device,
                                               chunk_size=chunk_size, pictures=pictures))
    if interrupted:
        raise BatchInterrupted(result)
    return result


def _stale_message(stale: List[Tuple[Sequence, int]], record: Record, output: str, settings: Dict[str, Any]) -> str:
    made = [record.made_with(os.path.relpath(flow_path(output, s, p), output)) for s, p in stale]
    known = [m for m in made if m is not None]
    what = (f"were made with other settings ({describe(known[0])})" if known
            else "have no record of the settings they were made with")
    return (f"{len(stale)} flow{'s' if len(stale) != 1 else ''} under {output} {what}, not with "
            f"{describe(settings)}: give --overwrite (overwrite=True) to recompute them, or choose another "
            "output folder")


def _remove_partial_files(flows: List[str]) -> None:
    """Removes the temporary files that the outputs of these pairs (their
    .flo paths) are written to before they are renamed: .vemo-*.flo.tmp from
    write_flo, .LABEL.png.XXXXXX.png from the PNG writer."""
    pictures: Dict[str, Set[str]] = {}
    for flow in flows:
        pictures.setdefault(os.path.dirname(flow), set()).add(os.path.basename(flow)[: -len(".flo")] + ".png")
    for folder, names in pictures.items():
        try:
            present = os.listdir(folder)
        except OSError:
            continue
        for name in present:
            partial = name.startswith(".vemo-") and name.endswith(".flo.tmp")
            partial |= name.endswith(".png") and name[1:-11] in names and name[0] == "."
            if partial:
                try:
                    os.unlink(os.path.join(folder, name))
                except OSError:
                    pass


def _close(client: Any, cluster: Any) -> None:
    """Closes a client and a cluster of our own; a second interruption while
    they close does not stop the manifest from being written."""
    for closing in (client, cluster):
        if closing is None:
            continue
        try:
            closing.close()
        except (Exception, KeyboardInterrupt):
            pass


def _compute(client: Any, chunks: List[Chunk], settings: Settings, retries: int, stream: Any, output: str,
             records: List[Dict[str, Any]]) -> None:
    """Submits the chunks and adds their pairs' records to ``records`` as
    they finish; on an interruption the unfinished chunks are cancelled."""
    from distributed import as_completed

    futures = {
        client.submit(run_chunk, chunk, settings, pure=False, retries=retries): chunk for chunk in chunks
    }
    show = stream is not False
    progress = Progress(sum(c.pairs for c in chunks), None if stream in (None, False) else stream)
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
            if show:
                failed = sum(1 for r in chunk_records if r["status"] == "failed")
                name = chunk.sequence.name or "."
                progress.chunk_done(f"{name} {chunk.sequence.labels[chunk.first]}..{chunk.sequence.labels[chunk.stop]}",
                                    chunk.pairs, failed)
    finally:
        for future in futures:
            if not future.done():
                future.cancel()
        if show:
            progress.finish()
