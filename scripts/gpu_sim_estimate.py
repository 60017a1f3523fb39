#!/usr/bin/env python3
"""Estimated device time of one default 640 x 480 pair on the simulator's
RTX 2060 model, from the logs of scripts/gpu-simulated-speed.sh.

    gpu_sim_estimate.py RUNS_DIR WxH MATCH_WxH [SOLVE_WxH]

For each kernel family: the cycles of one call at the measured size (the
simulator's gpu_sim_cycle), scaled to every level of a default run (eta
0.95, 5 fixed-point iterations, 10 solver iterations, 20 in the five extra
full-size passes) as a fixed cost per launch plus a part proportional to
the pixels, times the launches each level makes (counted from three
functional runs of a level with different iteration counts). Beside it, the
bytes the family must move at least (its planes read and written once) over
the card's memory bandwidth: the time it cannot beat. An H100 column scales
the estimate by memory bandwidth only. Prints a Markdown table.
"""
import collections
import math
import os
import re
import struct
import sys

CLOCK_HZ = 1365e6  # SM75_RTX2060: core clock of the configuration
BANDWIDTH = 336e9  # 12 channels x 16 bit x 3500.5 MHz x 4 transfers
H100_BANDWIDTH = 3.35e12  # H100 SXM (HBM3)
WIDTH, HEIGHT, ETA, FIXED_POINT, SOLVER, EXTRA_PASSES = 640, 480, 0.95, 5, 10, 5
COARSEST = 15.0  # pyramid: the coarsest level's smaller side
ONE_BLOCK_PIXELS = 4096  # levels below run in one thread block
GRID_STEP, GRID_MARGIN, MATCH_RADIUS, MATCH_BORDER = 4, 12, 80, 12

# Floats each family must read and write per pixel of its launch (its
# planes once each; neighbours and taps come from caches), and what it is.
FAMILIES = {
    "mvm_opt_kernel": (20, "solver: next direction and product (A 12 planes, p, z in; p', q out)"),
    "updatePreconditionKernel": (18, "solver: update and block-Jacobi step"),
    "computeResidual_opt_kernel": (16, "solver: first residual"),
    "rowDotKernel": (4, "solver: dot products, per-row partial sums"),
    "combineRowsKernel": (0, "solver: dot products, rows combined (one block)"),
    "BlockJacobiOp": (8, "solver: first preconditioning"),
    "AssembleOp": (35, "assembly: robust factors and the 12-plane system"),
    "DiffusivityOp": (6, "diffusivity"),
    "convolveXsmall_kernel": (2, "motion tensors: derivative filters along rows"),
    "convolveYsmall_kernel": (2, "motion tensors: derivative filters along columns"),
    "DiffOp": (3, "motion tensors: temporal differences"),
    "BrightnessTensorOp": (16, "motion tensors: brightness tensor, per channel (4 planes in, 6 added to)"),
    "GradientTensorOp": (18, "motion tensors: gradient tensor, per channel (6 planes in, 6 added to)"),
    "AddOp": (3, "flow += increment"),
    "DownsampleOp": (2, "resampling: frames and match field to the next level"),
    "InterpolateOp": (2, "resampling: flow enlarged from the coarser level"),
    "ScaleOp": (2, "resampling: displacements scaled"),
    "WarpOp": (12, "warping: second frame and in-image mask"),
    "residentLevelKernel": (0, "a whole level in one thread block (levels below 4,096 pixels)"),
    "HOGMatch_kernel": (0, "matching: exhaustive 161 x 161 search, both directions"),
}


def f32(x):
    return struct.unpack("f", struct.pack("f", x))[0]


def levels():
    """(pixels, solver iterations, kind) of each level of a default run."""
    m = float(min(HEIGHT, WIDTH))
    scales = max(0, int(math.log(COARSEST / m) / math.log(f32(ETA))))

    def size(e):
        f = f32(f32(ETA) ** e)
        return math.ceil(f32(f * HEIGHT)), math.ceil(f32(f * WIDTH))

    out = []
    for s in range(scales, -EXTRA_PASSES - 1, -1):
        e = max(s, 0)
        if s >= 0 and size(e) == size(e + 1):
            continue  # degenerate: same size as the coarser level
        h, w = size(e)
        iterations = SOLVER if s >= 0 else 2 * SOLVER
        kind = "one-block" if h * w < ONE_BLOCK_PIXELS else ("pyramid" if s > 0 else "full")
        out.append((h * w, iterations, kind, s, s == scales))
    return out


def tokens(mangled):
    """Identifiers of a mangled name with the character that follows each."""
    out, i, start = [], 0, True  # start: a length may begin here
    while i < len(mangled):
        if mangled[i].isdigit() and (start or not mangled[i - 1].isdigit()):
            j = i
            while j < len(mangled) and mangled[j].isdigit():
                j += 1
            n = int(mangled[i:j])
            ident = mangled[j:j + n]
            if len(ident) == n and re.fullmatch(r"[A-Za-z_][A-Za-z0-9_]*", ident):
                out.append((ident, mangled[j + n:j + n + 1]))
                i, start = j + n, True
                continue
        i, start = i + 1, False
    return out


def family(mangled):
    toks = tokens(mangled)
    for k, (ident, after) in enumerate(toks):
        if after in ("E", "I") and not ident.startswith("_GLOBAL"):
            if ident == "pixelKernel":
                for ident2, _ in toks[k + 1:]:
                    if not ident2.startswith("_GLOBAL"):
                        return ident2
            return ident
    return mangled


def timed(path):
    """Kernel families launched after the bench's marker, with the cycles of
    each launch (timing-model logs) or None (functional logs)."""
    text = open(path, errors="replace").read()
    text = text[text.rfind("vemo-bench: timed work begins"):]
    names = re.findall(r"^kernel_name = (\S+)", text, re.M)
    cycles = [int(c) for c in re.findall(r"^gpu_sim_cycle = (\d+)", text, re.M)]
    if names:
        return [(family(n), c) for n, c in zip(names, cycles)]
    return [(family(n), None) for n in re.findall(r"pushing kernel '([^']+)'", text)]


def instructions(path, fam):
    """Thread instructions the simulator counted for a family's launches."""
    text = open(path, errors="replace").read()
    text = text[text.rfind("vemo-bench: timed work begins"):]
    names = re.findall(r"^kernel_name = (\S+)", text, re.M)
    insn = [int(c) for c in re.findall(r"^gpu_sim_insn = (\d+)", text, re.M)]
    return sum(i for n, i in zip(names, insn) if family(n) == fam)


def pixels(size):
    w, h = map(int, size.split("x"))
    return w * h


def match_work(w, h):
    """Candidates visited by one direction's search (window inside the border)."""
    total = 0
    for y in range(GRID_MARGIN, h - GRID_MARGIN, GRID_STEP):
        rows = min(y + MATCH_RADIUS, h - 1 - MATCH_BORDER) - max(y - MATCH_RADIUS, MATCH_BORDER) + 1
        for x in range(GRID_MARGIN, w - GRID_MARGIN, GRID_STEP):
            cols = min(x + MATCH_RADIUS, w - 1 - MATCH_BORDER) - max(x - MATCH_RADIUS, MATCH_BORDER) + 1
            total += max(rows, 0) * max(cols, 0)
    return total


def main():
    runs, size, match_size = sys.argv[1], sys.argv[2], sys.argv[3]
    solve_size = sys.argv[4] if len(sys.argv) > 4 else "320x240"
    log = lambda name: os.path.join(runs, name, "run.log")
    # Launches per level (L), per fixed-point step (F), per solver iteration (I).
    c = {k: collections.Counter(f for f, _ in timed(log("count-" + k))) for k in ("1-2", "1-3", "2-2")}
    per = {}
    for fam in set(c["1-2"]) | set(c["1-3"]) | set(c["2-2"]):
        it = c["1-3"][fam] - c["1-2"][fam]
        fp = c["2-2"][fam] - c["1-2"][fam] - 2 * it
        per[fam] = (c["1-2"][fam] - fp - 2 * it, fp, it)

    sizes = {"level": pixels(size), "resample": pixels(size), "hog": pixels(size),
             "matching": pixels(match_size), "one-block": 64 * 63, "solve": pixels(solve_size)}
    measured = {}  # (run, family) -> (mean cycles per call, pixels of the call, calls)
    for name, px in sizes.items():
        if not os.path.exists(log(name)):
            continue  # the HOG fields at WxH are optional: the matching run has them too
        calls = collections.defaultdict(list)
        for fam, cyc in timed(log(name)):
            calls[fam].append(cyc)
        for fam, cycs in calls.items():
            measured[(name, fam)] = (sum(cycs) / len(cycs), px, len(cycs))
    floor = min(m[0] for m in measured.values())  # the fixed cost of a launch

    def cycles(key, px):
        mean, mpx, _ = measured[key]
        return floor + max(mean - floor, 0.0) * px / mpx

    pair = collections.defaultdict(float)  # family -> cycles per pair
    calls = collections.defaultdict(float)
    bytes_ = collections.defaultdict(float)
    source = {}
    resample_per_level = {"DownsampleOp": 1.5, "InterpolateOp": 2, "ScaleOp": 4, "WarpOp": 1}
    one_block = [k for k in measured if k[0] == "one-block"]
    for px, iterations, kind, s, coarsest in levels():
        if kind == "one-block":
            key = max(one_block, key=lambda k: measured[k][0])  # the level's kernel, not the set-up's
            fam = "residentLevelKernel"
            pair[fam] += cycles(key, px)
            calls[fam] += 1
            source[fam] = key
            continue
        for fam, (l, fp, it) in per.items():
            n = l + FIXED_POINT * (fp + iterations * it)
            if n <= 0 or ("level", fam) not in measured:
                continue
            # The solver's kernels from the larger solve run where there is one.
            at = ("solve", fam) if ("solve", fam) in measured else ("level", fam)
            pair[fam] += n * cycles(at, px)
            calls[fam] += n
            bytes_[fam] += n * FAMILIES.get(fam, (0, ""))[0] * 4 * px
            source[fam] = at
        for fam, k in resample_per_level.items():
            if ("resample", fam) not in measured or (fam == "DownsampleOp" and s <= 0) or (fam == "WarpOp" and coarsest):
                continue
            if fam in ("InterpolateOp", "ScaleOp") and (s < 0 or coarsest):
                continue
            pair[fam] += k * cycles(("resample", fam), px)
            calls[fam] += k
            bytes_[fam] += k * FAMILIES[fam][0] * 4 * px
            source[fam] = ("resample", fam)
    # The matching stage runs once per pair at full size: its search scaled by
    # the candidates it visits, the HOG fields and the rest by pixels.
    full = WIDTH * HEIGHT
    match_fams = set()
    for (name, fam), (mean, mpx, n) in list(measured.items()):
        if name != "matching":
            continue
        key = fam if fam == "HOGMatch_kernel" else "matching: " + fam
        match_fams.add(key)
        if fam == "HOGMatch_kernel":
            ratio = match_work(WIDTH, HEIGHT) / match_work(*map(int, match_size.split("x")))
            pair[key] += n * mean * ratio
            source[key] = (name, fam)
            # A launch this small keeps a few warps per SM busy: its cycles
            # per candidate overstate a full frame's. The frame's instructions
            # at the card's issue rate (30 SMs x 64 lanes) bound it below.
            issue_ms = instructions(log(name), fam) * ratio / (30 * 64) / CLOCK_HZ * 1e3
        else:
            at = ("hog", fam) if ("hog", fam) in measured else (name, fam)
            pair[key] += n * cycles(at, full)
            source[key] = at
        calls[key] += n
    bytes_["matching: HOG fields"] = 2 * 20 * 4 * full  # 3 planes in, 15 bins, cornerness and energy out

    total = sum(pair.values())
    print(f"Estimated device time of one default {WIDTH} x {HEIGHT} pair on the simulated RTX 2060 "
          f"(timing model, {CLOCK_HZ / 1e6:.0f} MHz, {BANDWIDTH / 1e9:.0f} GB/s); kernels measured at {size} "
          f"(solver at {solve_size} where measured, matching at {match_size}, one-block level at 64x63), "
          f"fixed cost per launch {floor:.0f} cycles.\n")
    print("| kernel family | what | cycles per call (run, pixels) | calls per pair | est. ms per pair "
          "| min. bytes per pair (MB) | bound ms at 336 GB/s | est. / bound | H100 ms (by bandwidth) |")
    print("|---|---|---|---|---|---|---|---|---|")
    for fam in sorted(pair, key=lambda f: -pair[f]):
        ms = pair[fam] / CLOCK_HZ * 1e3
        b = bytes_.get(fam, 0.0)
        bound = b / BANDWIDTH * 1e3
        ratio = f"{ms / bound:.1f}" if bound > 0 else "-"
        base = fam.split(": ")[-1]
        what = FAMILIES.get(base, (0, "matching stage (HOG fields, sums, consistency)" if fam in match_fams else ""))[1]
        mean, mpx, _ = measured[source[fam]]
        print(f"| {fam} | {what} | {mean:.0f} ({source[fam][0]}, {mpx}) | {calls[fam]:.0f} | {ms:.2f} "
              f"| {b / 1e6:.1f} | {bound:.3f} | {ratio} | {ms * BANDWIDTH / H100_BANDWIDTH:.2f} |")
    if "HOGMatch_kernel" in pair:
        print(f"\nHOGMatch_kernel, scaled by candidates from {match_size}: {pair['HOGMatch_kernel'] / CLOCK_HZ * 1e3:.0f} ms; "
              f"its instructions at the full issue rate: {issue_ms:.0f} ms (the search is bound by instructions, "
              f"not memory; the truth for a full frame lies between).")
    if not any(measured[k][0] > 2 * floor for k in one_block):
        print("\nThe one-block level was not measured: its row is the launch floor only.")
    if "HOGMatch_kernel" in pair:
        rest = (total - pair["HOGMatch_kernel"]) / CLOCK_HZ * 1e3
        print(f"\nWithout the search: {rest:.0f} ms per pair (H100 by bandwidth: {rest * BANDWIDTH / H100_BANDWIDTH:.0f} ms); "
              f"with the search at its issue bound: {rest + issue_ms:.0f} ms.")
    print(f"\nTotal: {total / CLOCK_HZ * 1e3:.1f} ms per pair on the RTX 2060 model; scaled by memory bandwidth "
          f"to an H100: {total / CLOCK_HZ * 1e3 * BANDWIDTH / H100_BANDWIDTH:.1f} ms.")
    print(f"Levels: {len(levels())} ({sum(1 for l in levels() if l[2] == 'one-block')} in one block).")


if __name__ == "__main__":
    main()
