#!/usr/bin/python3
"""Times OpenCV flow methods on a frame pair, as peers for scripts/bench.sh.

    bench_peers.py frame1.ppm frame2.ppm runs threads

Prints one line per method, "<name> = <median ms> " like the program's own
timing lines, then the spread. Methods: DeepFlow (the coarse-to-fine
variational method without descriptor matching, opencv-contrib's optflow
module) and DIS with the medium preset, both on grey frames as they expect.
"""
import statistics
import sys
import time

import cv2


def median_ms(calc, runs):
    times = []
    for _ in range(runs):
        start = time.perf_counter()
        calc()
        times.append((time.perf_counter() - start) * 1000.0)
    return statistics.median(times), min(times), max(times)


def main():
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    first, second, runs, threads = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
    cv2.setNumThreads(threads)
    grey = [cv2.imread(path, cv2.IMREAD_GRAYSCALE) for path in (first, second)]
    if any(g is None for g in grey):
        sys.exit("bench_peers: cannot read the frames")
    methods = [("DIS medium", cv2.DISOpticalFlow_create(cv2.DISOPTICAL_FLOW_PRESET_MEDIUM))]
    if hasattr(cv2, "optflow"):
        methods.insert(0, ("DeepFlow", cv2.optflow.createOptFlow_DeepFlow()))
    else:
        print("bench_peers: this OpenCV has no optflow module; DeepFlow not timed", file=sys.stderr)
    for name, method in methods:
        method.calc(grey[0], grey[1], None)  # first call: allocations, thread start-up
        med, lo, hi = median_ms(lambda: method.calc(grey[0], grey[1], None), runs)
        print(f"{name} time = {med:f} ")
        print(f"  ({name}: min {lo:.1f} ms, max {hi:.1f} ms over {runs} runs, {threads} thread(s))", file=sys.stderr)


if __name__ == "__main__":
    main()
