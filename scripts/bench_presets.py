#!/usr/bin/python3
"""vemo's presets against OpenCV's flow methods: time and accuracy front.

    bench_presets.py [--rounds N] [--threads T] [--data DIR] [--build DIR]
                     [--presets a,b,..] [--peers a,b,..] [--doc FILE]
                     [--picture FILE] [--json FILE]

Runs every preset (vemo-flow --preset) and every OpenCV peer of
scripts/bench_peers.py on the same frame pairs with ground truth (folders of
frame1.ppm, frame2.ppm, gt.flo; default ../shared/data/flow), in N rounds
(default 3). In each round every pair is computed by every method in turn,
the order of the methods rotating from round to round, so that a busy
machine slows all of them alike.

Timing. A peer is timed around calc() after one untimed call on the pair (its
allocations); a preset in one vemo-flow process over the sequence frame1,
frame2, frame1, frame2, whose third pair (frame1 -> frame2 again, buffers
already allocated) gives the program's "total" time (--timings: from
presmoothing to the flow in memory, without reading and writing files). Time per 640 x 480 pair:
each pair's median over the rounds scaled by 640 * 480 / its pixels, then
averaged over the pairs. Accuracy: mean end-point error over the pixels with
known ground truth, its geometric mean over the pairs, and the geometric
mean over the pairs of EPE / (the best OpenCV peer's EPE on that pair).

Writes the table between the markers "<!-- presets table -->" and
"<!-- end presets table -->" of --doc (default docs/performance.md) and the
picture (time per pair against geometric-mean EPE, log time axis) to
--picture (default docs/presets.png); prints the table too.
"""
import argparse
import json
import math
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

import cv2
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import bench_peers  # noqa: E402

PRESETS = ["ultrafast", "fast", "default", "quality"]
PIXELS_640 = 640 * 480
MARK_BEGIN = "<!-- presets table -->"
MARK_END = "<!-- end presets table -->"


def read_flo(path):
    with open(path, "rb") as f:
        if f.read(4) != b"PIEH":
            raise ValueError(f"{path}: not a .flo file")
        width, height = np.frombuffer(f.read(8), np.int32)
        return np.frombuffer(f.read(), np.float32).reshape(height, width, 2)


def epe(flow, truth):
    known = np.isfinite(truth).all(-1) & (np.abs(truth) < 1e9).all(-1)
    return float(np.sqrt(((flow - truth) ** 2).sum(-1))[known].mean())


def geomean(values):
    return math.exp(sum(math.log(v) for v in values) / len(values))


class Pair:
    def __init__(self, folder):
        self.name = os.path.basename(folder.rstrip("/"))
        self.frames = [os.path.join(folder, f"frame{i}.ppm") for i in (1, 2)]
        self.grey = [cv2.imread(p, cv2.IMREAD_GRAYSCALE) for p in self.frames]
        self.truth = read_flo(os.path.join(folder, "gt.flo"))
        self.pixels = self.truth.shape[0] * self.truth.shape[1]


def run_preset(vemo_flow, preset, pair, threads, scratch):
    """(ms of the warm run, flow) of one preset on one pair."""
    seq = os.path.join(scratch, "seq")
    os.makedirs(seq, exist_ok=True)
    for i, frame in enumerate(pair.frames * 2):
        link = os.path.join(seq, f"{i}.ppm")
        if os.path.lexists(link):
            os.remove(link)
        os.symlink(os.path.abspath(frame), link)
    out = subprocess.run(
        [vemo_flow, "--preset", preset, "--threads", str(threads), "--timings", "-q",
         "--sequence", os.path.join(seq, "%d.ppm"), "-o", os.path.join(scratch, "flow%d.flo")],
        capture_output=True, text=True)
    if out.returncode != 0:
        sys.exit(f"bench_presets: vemo-flow --preset {preset} failed on {pair.name}:\n{out.stderr}")
    totals = [float(t) for t in re.findall(r"^\s+total\s+([0-9.]+) ms$", out.stdout, re.M)]
    if len(totals) != 3:
        sys.exit(f"bench_presets: expected three timed pairs from vemo-flow, got {len(totals)}")
    return totals[2], read_flo(os.path.join(scratch, "flow2.flo"))


def run_peer(method, pair):
    a, b = pair.grey
    method.calc(a, b, None)
    start = time.perf_counter()
    flow = method.calc(a, b, None)
    return (time.perf_counter() - start) * 1000.0, flow


def summarise(names, times, errors, pairs, peer_names):
    rows = {}
    best = {p.name: min(errors[n][p.name] for n in peer_names) for p in pairs}
    for name in names:
        t640 = statistics.mean(statistics.median(times[name][p.name]) * PIXELS_640 / p.pixels for p in pairs)
        rows[name] = {
            "time_ms": t640,
            "epe": geomean([errors[name][p.name] for p in pairs]),
            "ratio_to_best_peer": geomean([errors[name][p.name] / best[p.name] for p in pairs]),
            "pairs": {p.name: errors[name][p.name] for p in pairs},
        }
    return rows


def dominated_by(rows, name, peer_names):
    r = rows[name]
    return [p for p in peer_names if rows[p]["time_ms"] <= r["time_ms"] and rows[p]["epe"] <= r["epe"]]


def table(rows, presets, peers, pairs, rounds, threads):
    lines = [
        f"| method | time per 640 x 480 pair (ms) | geometric-mean EPE | EPE / best peer's | "
        + " | ".join(p.name for p in pairs) + " |",
        "|---" * (4 + len(pairs)) + "|",
    ]
    for name in presets + peers:
        r = rows[name]
        label = f"`{name}`" if name in presets else name
        lines.append(f"| {label} | {r['time_ms']:,.1f} | {r['epe']:.3f} | {r['ratio_to_best_peer']:.3f} | "
                     + " | ".join(f"{r['pairs'][p.name]:.3f}" for p in pairs) + " |")
    lines.append("")
    lines.append(f"{rounds} rounds, {threads} threads, medians per pair; "
                 f"{time.strftime('%Y-%m-%d %H:%M')}, scripts/bench_presets.py.")
    ratios = []
    for ref in ("DIS medium", "DeepFlow"):
        if ref in rows:
            ratios.append(", ".join(f"`{n}` {rows[n]['time_ms'] / rows[ref]['time_ms']:.2f}" for n in presets)
                          + f" times {ref}'s time")
    if "default" in rows:
        ratios.append(", ".join(f"`{n}` {rows[n]['time_ms'] / rows['default']['time_ms']:.2f}" for n in presets)
                      + " times `default`'s time")
    lines += [f"- {r}" for r in ratios]
    for name in presets:
        beaten = dominated_by(rows, name, peers)
        if beaten:
            lines.append(f"- `{name}` is beaten on both axes by {', '.join(beaten)}")
    return "\n".join(lines) + "\n"


def picture(rows, presets, peers, path):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    fig, ax = plt.subplots(figsize=(7, 4.5))
    xs = [rows[n]["time_ms"] for n in presets]
    ys = [rows[n]["epe"] for n in presets]
    ax.plot(xs, ys, "o-", color="tab:red", label="vemo presets")
    for n in presets:
        ax.annotate(n, (rows[n]["time_ms"], rows[n]["epe"]), textcoords="offset points", xytext=(5, 5))
    ax.plot([rows[n]["time_ms"] for n in peers], [rows[n]["epe"] for n in peers], "s", color="tab:blue",
            label="OpenCV")
    for n in peers:
        ax.annotate(n, (rows[n]["time_ms"], rows[n]["epe"]), textcoords="offset points", xytext=(5, -11),
                    fontsize=8)
    ax.set_xscale("log")
    ax.set_xlabel("time per 640 x 480 pair (ms, 2 threads, log scale)")
    ax.set_ylabel("geometric-mean end-point error (px)")
    ax.grid(True, which="both", alpha=0.3)
    ax.legend()
    fig.tight_layout()
    fig.savefig(path, dpi=110)


def write_doc(path, text):
    with open(path) as f:
        doc = f.read()
    if MARK_BEGIN not in doc or MARK_END not in doc:
        sys.exit(f"bench_presets: {path} lacks the markers {MARK_BEGIN} ... {MARK_END}")
    head, rest = doc.split(MARK_BEGIN, 1)
    _, tail = rest.split(MARK_END, 1)
    with open(path, "w") as f:
        f.write(head + MARK_BEGIN + "\n" + text + MARK_END + tail)


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--rounds", type=int, default=3)
    ap.add_argument("--threads", type=int, default=2)
    ap.add_argument("--data", default=os.path.join(root, "..", "shared", "data", "flow"))
    ap.add_argument("--build", default=os.path.join(root, "build"))
    ap.add_argument("--presets", default=",".join(PRESETS))
    ap.add_argument("--peers", default=",".join(n for n, _ in bench_peers.PEERS))
    ap.add_argument("--doc", default=os.path.join(root, "docs", "performance.md"))
    ap.add_argument("--picture", default=os.path.join(root, "docs", "presets.png"))
    ap.add_argument("--json", default=None, help="also write the raw times and errors here")
    a = ap.parse_args()

    folders = sorted(os.path.join(a.data, d) for d in os.listdir(a.data)
                     if os.path.isfile(os.path.join(a.data, d, "gt.flo")))
    if not folders:
        sys.exit(f"bench_presets: no pairs with ground truth in {a.data}")
    pairs = [Pair(f) for f in folders]
    presets = [p for p in a.presets.split(",") if p]
    cv2.setNumThreads(a.threads)
    peers = bench_peers.available_peers(set(a.peers.split(",")))
    peer_names = [n for n, _ in peers]
    vemo_flow = os.path.join(a.build, "vemo-flow")

    methods = [(n, None) for n in presets] + peers
    times = {n: {p.name: [] for p in pairs} for n, _ in methods}
    errors = {n: {} for n, _ in methods}
    with tempfile.TemporaryDirectory() as scratch:
        for r in range(a.rounds):
            for p in pairs:
                order = methods[r % len(methods):] + methods[:r % len(methods)]
                for name, method in order:
                    if method is None:
                        ms, flow = run_preset(vemo_flow, name, p, a.threads, scratch)
                    else:
                        ms, flow = run_peer(method, p)
                    times[name][p.name].append(ms)
                    errors[name][p.name] = epe(flow, p.truth)
                print(f"round {r + 1}/{a.rounds}: {p.name} done", file=sys.stderr, flush=True)

    rows = summarise([n for n, _ in methods], times, errors, pairs, peer_names)
    text = table(rows, presets, peer_names, pairs, a.rounds, a.threads)
    print(text)
    if a.json:
        with open(a.json, "w") as f:
            json.dump({"rows": rows, "times": times}, f, indent=1)
    write_doc(a.doc, text)
    picture(rows, presets, peer_names, a.picture)


if __name__ == "__main__":
    main()
