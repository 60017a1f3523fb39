#!/usr/bin/python3
"""Times OpenCV flow methods on a frame pair, as peers for scripts/bench.sh.

    bench_peers.py frame1.ppm frame2.ppm runs threads [--all]

Prints one line per method, "<name> = <median ms> " like the program's own
timing lines, then the spread. Methods: DeepFlow (the coarse-to-fine
variational method without descriptor matching, opencv-contrib's optflow
module) and DIS with the medium preset, both on grey frames as they expect;
with --all every peer of PEERS. scripts/bench_presets.py runs the same peers
against vemo's presets on pairs with ground truth.
"""
import statistics
import sys
import time

import cv2

# The peers: name and a factory of an object with calc(grey1, grey2, None).
# Farneback and PCAFlow with OpenCV's own defaults, DIS with its presets.
PEERS = [
    ("DIS ultrafast", lambda: cv2.DISOpticalFlow_create(cv2.DISOPTICAL_FLOW_PRESET_ULTRAFAST)),
    ("DIS fast", lambda: cv2.DISOpticalFlow_create(cv2.DISOPTICAL_FLOW_PRESET_FAST)),
    ("DIS medium", lambda: cv2.DISOpticalFlow_create(cv2.DISOPTICAL_FLOW_PRESET_MEDIUM)),
    ("Farneback", lambda: cv2.FarnebackOpticalFlow_create()),
    ("PCAFlow", lambda: cv2.optflow.createOptFlow_PCAFlow()),
    ("DeepFlow", lambda: cv2.optflow.createOptFlow_DeepFlow()),
    ("TV-L1", lambda: cv2.optflow.DualTVL1OpticalFlow_create()),
]
# Peers that need opencv-contrib's optflow module.
CONTRIB = {"PCAFlow", "DeepFlow", "TV-L1"}


def available_peers(names=None):
    """(name, method) for the peers this OpenCV has, in PEERS order."""
    out = []
    for name, make in PEERS:
        if names is not None and name not in names:
            continue
        if name in CONTRIB and not hasattr(cv2, "optflow"):
            print(f"bench_peers: this OpenCV has no optflow module; {name} not run", file=sys.stderr)
            continue
        out.append((name, make()))
    return out


def median_ms(calc, runs):
    times = []
    for _ in range(runs):
        start = time.perf_counter()
        calc()
        times.append((time.perf_counter() - start) * 1000.0)
    return statistics.median(times), min(times), max(times)


def main():
    args = [a for a in sys.argv[1:] if a != "--all"]
    if len(args) != 4:
        sys.exit(__doc__)
    first, second, runs, threads = args[0], args[1], int(args[2]), int(args[3])
    cv2.setNumThreads(threads)
    grey = [cv2.imread(path, cv2.IMREAD_GRAYSCALE) for path in (first, second)]
    if any(g is None for g in grey):
        sys.exit("bench_peers: cannot read the frames")
    names = None if "--all" in sys.argv[1:] else {"DeepFlow", "DIS medium"}
    for name, method in available_peers(names):
        method.calc(grey[0], grey[1], None)  # first call: allocations, thread start-up
        med, lo, hi = median_ms(lambda: method.calc(grey[0], grey[1], None), runs)
        print(f"{name} time = {med:f} ")
        print(f"  ({name}: min {lo:.1f} ms, max {hi:.1f} ms over {runs} runs, {threads} thread(s))", file=sys.stderr)


if __name__ == "__main__":
    main()
