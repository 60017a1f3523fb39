"""python -m vemo.batch INPUT... -o OUTPUT: the flow of every consecutive pair
of the sequences under the inputs. Exit status 0 when every pair has its
flow, 1 when some failed or an output folder cannot be written, 2 for a
usage error (or outputs made with other parameters), 130 / 143 when
interrupted by SIGINT / SIGTERM."""

from __future__ import annotations

import argparse
import logging
import signal
import sys
from typing import List, Optional

from ..options import DEVICE_NAMES, MAX_THREADS, PARAMETERS, preset_names
from .run import MANIFEST, BatchInterrupted, run_batch


def parse(argv: Optional[List[str]]) -> argparse.Namespace:
    p = argparse.ArgumentParser(
        prog="python -m vemo.batch",
        description="Computes the optical flow of every consecutive pair of frames of the sequences under "
        "the inputs (folders of numbered frames such as 00001.png, and video files, searched recursively) on a "
        "Dask cluster, "
        "writing <label>.flo per pair under OUTPUT in folders that mirror the input. Pairs whose output is "
        "already there, made with the same parameters, are skipped, so an interrupted batch is finished by "
        "running it again.",
    )
    p.add_argument("inputs", nargs="+", metavar="INPUT", help="folder (or file) holding sequences")
    p.add_argument("-o", "--output", required=True, help="output folder")
    p.add_argument("--scheduler", metavar="tcp://HOST:PORT", help="an existing Dask scheduler "
                   "(default: a local cluster of this machine)")
    p.add_argument("--workers", type=int, help="local worker processes (default: one per core, or per GPU)")
    p.add_argument("--threads", type=int,
                   help=f"OpenMP threads per worker, 1 to {MAX_THREADS} (default: cores / workers)")
    p.add_argument("--chunk", type=int, default=8, help="consecutive pairs per task (default 8)")
    p.add_argument("--viz", action="store_true", help="also write a colour picture <label>.png per pair")
    p.add_argument("--manifest", help=f"JSON record of every pair (default OUTPUT/{MANIFEST})")
    p.add_argument("--overwrite", action="store_true", help="recompute outputs made with other parameters "
                   "(without it the batch refuses to mix them)")
    p.add_argument("--device", default="auto",
                   help=f"{DEVICE_NAMES} (default auto: CUDA where a GPU is usable; a CUDA device that "
                   "cannot be used gives a warning and the CPU)")
    method = p.add_argument_group(
        "method (the options of vemo-flow, same ranges; a preset sets them all, options given override it; "
        "the defaults shown are the default preset's)")
    method.add_argument("--preset", default=None, metavar="NAME",
                        help="operating point: " + ", ".join(preset_names()) + " (default: default)")
    for parameter in PARAMETERS:
        method.add_argument("--" + parameter.name.replace("_", "-"), type=int if parameter.whole else float,
                            default=None,
                            help=f"{parameter.help} (default {parameter.default}; {parameter.range_text})")
    return p.parse_args(argv)


def main(argv: Optional[List[str]] = None) -> int:
    a = parse(argv)
    # SIGTERM stops the batch as Ctrl-C does: outputs stay whole and the
    # manifest is written.
    received = [signal.SIGINT]

    def terminate(signum: int, frame: object) -> None:
        received[0] = signum
        raise KeyboardInterrupt

    signal.signal(signal.SIGTERM, terminate)
    # Ctrl-C too, also where the batch was started with SIGINT ignored (as a
    # background job of a script): the signal is how a user stops it.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    # An interruption while the local cluster starts or stops leaves
    # asyncio tasks that failed; their tracebacks say nothing to the user.
    logging.getLogger("asyncio").setLevel(logging.CRITICAL)
    try:
        result = run_batch(
            a.inputs, a.output, scheduler=a.scheduler, workers=a.workers, threads=a.threads, chunk_size=a.chunk,
            pictures=a.viz, manifest=a.manifest, overwrite=a.overwrite, device=a.device, preset=a.preset,
            sigma=a.sigma,
            alpha=a.alpha, beta=a.beta, gamma=a.gamma, eta=a.eta, fixed_point_iters=a.fixed_point_iters,
            solver_iters=a.solver_iters,
        )
    except (TypeError, ValueError) as error:
        print(f"vemo.batch: {error}", file=sys.stderr)
        return 2
    except OSError as error:
        print(f"vemo.batch: {error}", file=sys.stderr)
        return 1
    except BatchInterrupted as stop:
        r = stop.result
        done = r.count("computed") + r.count("skipped")
        print(f"vemo.batch: interrupted: {done} of {len(r.pairs)} pairs have their flow ({r.count('computed')} "
              f"computed, {r.count('skipped')} skipped, {r.count('failed')} failed, {r.count('not run')} not run); "
              f"manifest {r.manifest}; the same command computes the rest", file=sys.stderr)
        return 128 + received[0]
    except KeyboardInterrupt:
        print("vemo.batch: interrupted before any pair was computed", file=sys.stderr)
        return 128 + received[0]
    print(result.summary(), file=sys.stderr)
    print(f"vemo.batch: manifest {result.manifest}", file=sys.stderr)
    return 0 if result.ok else 1


if __name__ == "__main__":
    sys.exit(main())
