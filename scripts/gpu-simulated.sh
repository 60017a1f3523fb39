#!/usr/bin/env bash
# Runs the CUDA backend on a simulated GPU (GPGPU-Sim, functional mode):
# builds it against the simulator's CUDA runtime in build-sim/, runs the
# gpu-labelled tests and compares whole runs with the CPU backend.
#
#   scripts/gpu-simulated.sh SIMULATOR_DIR [STEP...]
#
# SIMULATOR_DIR is the folder the simulator was set up in (EMU_ROOT of
# ../shared/gpu-emu/setup.sh: it holds gpgpu-sim/ and cuda/; see
# docs/gpu-validation.md). Steps, in the order given (default: build tests
# parity):
#   build    configure and build build-sim/ (CUDA for compute capability 7.5,
#            linked to the simulator's libcudart.so)
#   tests    VEMO_REQUIRE_GPU=1 VEMO_SIMULATED_GPU=1 ctest -L gpu, one test at
#            a time, without the tests the simulator cannot run (listed)
#   parity   vemo on CPU and simulated GPU: generated pairs of two sizes and
#            shifts, a crop of a real pair, and vemo-flow's backward flow and
#            occlusions; same bytes, or the largest and mean difference
#   presets  vemo-flow --preset ultrafast, fast and quality on CPU and
#            simulated GPU (a 96 x 80 pair; the pyramid factor and iteration
#            counts lowered, the presets' matching, schedule and smoothness
#            choices kept); same bytes, or the differences
#   default  vemo with its default parameters on a generated 96 x 80 pair
#            (more than an hour: run it in the background)
#   speed    the simulator's timing model on each kernel family at one size
#            (scripts/gpu-simulated-speed.sh; hours)
# Simulated programs run at the lowest priority, each in a folder of its own
# under build-sim/sim-runs/ (the simulator reads its configuration from the
# current folder and writes the PTX it extracts there).
# The whole script is one block, read before it runs: editing the file
# during an hours-long run does not change that run.
{
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
SIM="$(cd "${1:?usage: scripts/gpu-simulated.sh SIMULATOR_DIR [build|tests|parity|presets|default|speed ...]}" && pwd)"
shift
STEPS=("$@")
[ ${#STEPS[@]} -gt 0 ] || STEPS=(build tests parity)
BUILD="${BUILD:-$ROOT/build-sim}"
RUNS="$BUILD/sim-runs"
DATA="${VEMO_DATA_DIR:-$ROOT/../shared/data/flow}"
NICE="nice -n 10"

# The simulator's runtime, its PTX extraction (cuobjdump in $SIM/cuda/bin)
# and functional mode: exact results, no timing model.
export CUDA_INSTALL_PATH="$SIM/cuda"
set +u  # setup_environment reads unset variables
# shellcheck disable=SC1091
source "$SIM/gpgpu-sim/setup_environment" release >/dev/null
set -u
export PTX_SIM_MODE_FUNC="${PTX_SIM_MODE_FUNC:-1}"
CONFIG="$SIM/gpgpu-sim/configs/tested-cfgs/SM75_RTX2060"
SIM_LIB="$(ls "$SIM"/gpgpu-sim/lib/*/*/release/libcudart.so | head -1)"

# A fresh folder for one simulated program, holding the configuration.
run_dir() {
  rm -rf "${RUNS:?}/${1:?}"
  mkdir -p "$RUNS/$1"
  cp "$CONFIG/gpgpusim.config" "$CONFIG"/config_turing_islip.icnt "$RUNS/$1/"
  echo "$RUNS/$1"
}

seconds_since() { echo $(( $(date +%s) - $1 )); }

step_build() {
  local t0; t0=$(date +%s)
  mkdir -p "$BUILD"
  # gtest_discover_tests runs the test programs while building: they load
  # the simulator, which reads its configuration from the build folder.
  cp "$CONFIG/gpgpusim.config" "$CONFIG"/config_turing_islip.icnt "$BUILD/"
  $NICE cmake -S "$ROOT" -B "$BUILD" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_CUDA_COMPILER_LAUNCHER=ccache \
    -DCMAKE_CUDA_ARCHITECTURES=75 -DCMAKE_CUDA_RUNTIME_LIBRARY=None \
    -DCUDA_cudart_static_LIBRARY="$SIM_LIB" -DVEMO_GPU_TEST_TIMEOUT=7200 \
    -DVEMO_BUILD_BENCH=ON -DVEMO_BUILD_PYTHON=OFF -DVEMO_ENABLE_VIDEO=OFF >"$BUILD/configure.log"
  $NICE cmake --build "$BUILD" -j"${JOBS:-2}" >"$BUILD/build.log" 2>&1 || { tail -30 "$BUILD/build.log"; exit 1; }
  [[ "$(ldd "$BUILD/vemo")" == *"$SIM_LIB"* ]] || { echo "build-sim/vemo is not linked to $SIM_LIB"; exit 1; }
  echo "build: $(seconds_since "$t0") s"
}

# Tests the simulator cannot run by construction, with the reason.
SIM_CANNOT_RUN=(
  "CudaAgainstCpu.SyncSwitchReportsAKernelFaultAtItsOwnLaunch|no memory protection: a kernel's access outside every allocation does not fault"
  "CudaAgainstCpu.CachedBlocksAreGivenBackBeforeAnAllocationIsRefused|device memory is never exhausted (cudaMemGetInfo reports 10 GB that are not backed; allocations never fail)"
  "CudaAgainstCpu.SolvesInOneBlockAreTimedByTheDeviceClock|the device clock reads 0 in functional simulation"
)

step_tests() {
  local t0 names="" entry; t0=$(date +%s)
  echo "left out (the simulator cannot run them):"
  for entry in "${SIM_CANNOT_RUN[@]}"; do
    echo "  ${entry%%|*}: ${entry#*|}"
    names="${names:+$names|}${entry%%|*}"
  done
  # One test at a time: every simulated program writes its PTX files into
  # the build folder under the same names.
  (cd "$BUILD" && VEMO_REQUIRE_GPU=1 VEMO_SIMULATED_GPU=1 $NICE ctest -L gpu -E "^(${names//./\\.})\$" \
      --output-on-failure -j1 >"$BUILD/ctest-gpu.log" 2>&1) || true
  grep -E '^ *[0-9]+/[0-9]+ Test|tests passed|\(Failed\)|\(Timeout\)|Not Run' "$BUILD/ctest-gpu.log" || true
  grep -nE 'capture invalidated|not \(yet\) implemented|has not been implemented|read before it was written' \
    "$BUILD/ctest-gpu.log" | head -20 || true
  echo "tests: $(seconds_since "$t0") s (log: $BUILD/ctest-gpu.log)"
  grep -q '100% tests passed' "$BUILD/ctest-gpu.log"
}

# Largest and mean |a - b| over two .flo files, or "same bytes".
compare_flo() {
  if cmp -s "$1" "$2"; then echo "same bytes"; return; fi
  python3 - "$1" "$2" <<'PY'
import struct, sys
def read(p):
    b = open(p, 'rb').read()
    assert b[:4] == b'PIEH', p
    w, h = struct.unpack('<ii', b[4:12])
    return w, h, struct.unpack('<%df' % (2 * w * h), b[12:12 + 8 * w * h])
w, h, a = read(sys.argv[1]); w2, h2, b = read(sys.argv[2])
assert (w, h) == (w2, h2)
d = [abs(x - y) for x, y in zip(a, b)]
print(f"differ: max |cpu - cuda| {max(d):.3g} px, mean {sum(d) / len(d):.3g} px, "
      f"{sum(1 for x in d if x > 0)} of {len(d)} components")
PY
}

# A w x h crop at (x, y) of a binary PPM.
crop_ppm() {
  python3 - "$@" <<'PY'
import sys
src, dst, x0, y0, w, h = sys.argv[1], sys.argv[2], *map(int, sys.argv[3:])
data = open(src, 'rb').read()
fields, pos = [], 0
while len(fields) < 4:  # magic, width, height, maxval; comments skipped
    while data[pos:pos + 1].isspace(): pos += 1
    if data[pos:pos + 1] == b'#':
        pos = data.index(b'\n', pos); continue
    end = pos
    while not data[end:end + 1].isspace(): end += 1
    fields.append(data[pos:end]); pos = end
assert fields[0] == b'P6' and fields[3] == b'255', src
W, H = int(fields[1]), int(fields[2])
pix = data[pos + 1:]
assert x0 + w <= W and y0 + h <= H, (W, H)
rows = b''.join(pix[((y0 + y) * W + x0) * 3:((y0 + y) * W + x0 + w) * 3] for y in range(h))
open(dst, 'wb').write(b'P6\n%d %d\n255\n' % (w, h) + rows)
PY
}

# vemo on both devices in one folder pair; prints the times and the comparison.
vemo_both() {  # NAME FRAME_DIR PARAMETERS...
  local name=$1 frames=$2 dev dir t; shift 2
  for dev in cpu cuda; do
    dir=$(run_dir "$name/$dev")
    cp "$frames/frame1.ppm" "$frames/frame2.ppm" "$dir/"
    t=$(date +%s)
    (cd "$dir" && VEMO_DEVICE=$dev $NICE "$BUILD/vemo" frame1.ppm frame2.ppm "$@" >run.log 2>run.err) \
      || { echo "$name: $dev run failed:"; grep -v '^GPGPU-Sim' "$dir/run.err" | tail -5; return 1; }
    printf '%s %s %ss; ' "$name" "$dev" "$(seconds_since "$t")"
  done
  compare_flo "$RUNS/$name/cpu/frame1.ppmVEMO.flo" "$RUNS/$name/cuda/frame1.ppmVEMO.flo"
}

QUICK=(0.8 30 300 5 0.5 2 3)  # sigma alpha beta gamma eta fixed-point solver

step_parity() {
  local t0 pairs; t0=$(date +%s)
  pairs=$(mktemp -d)
  mkdir -p "$pairs/synth64" "$pairs/synth96" "$pairs/real"
  "$BUILD/vemo-synth" "$pairs/synth64" 2.5 1.5 64 48 >/dev/null
  "$BUILD/vemo-synth" "$pairs/synth96" -3.25 2.75 96 80 7 >/dev/null
  # A textured stretch of a real pair (frames only, in a temporary folder).
  crop_ppm "$DATA/middlebury_rubberwhale/frame1.ppm" "$pairs/real/frame1.ppm" 200 150 64 48
  crop_ppm "$DATA/middlebury_rubberwhale/frame2.ppm" "$pairs/real/frame2.ppm" 200 150 64 48
  vemo_both synth-64x48 "$pairs/synth64" "${QUICK[@]}"
  vemo_both synth-96x80 "$pairs/synth96" "${QUICK[@]}"
  vemo_both rubberwhale-64x48 "$pairs/real" "${QUICK[@]}"
  # The pair's backward flow and occlusion mask (vemo-flow, flow_pair).
  local dev dir t
  for dev in cpu cuda; do
    dir=$(run_dir "flow-pair/$dev")
    t=$(date +%s)
    (cd "$dir" && $NICE "$BUILD/vemo-flow" --device "$dev" "$pairs/synth64/frame1.ppm" "$pairs/synth64/frame2.ppm" \
        -o forward.flo --backward backward.flo --occlusions occlusions.png \
        --eta 0.5 --fixed-point-iters 2 --solver-iters 3 >run.log 2>run.err) \
      || { echo "flow-pair: $dev run failed:"; grep -v '^GPGPU-Sim' "$dir/run.err" | tail -5; return 1; }
    printf 'flow-pair %s %ss; ' "$dev" "$(seconds_since "$t")"
  done
  echo
  echo "  forward: $(compare_flo "$RUNS/flow-pair/cpu/forward.flo" "$RUNS/flow-pair/cuda/forward.flo")"
  echo "  backward: $(compare_flo "$RUNS/flow-pair/cpu/backward.flo" "$RUNS/flow-pair/cuda/backward.flo")"
  cmp -s "$RUNS/flow-pair/cpu/occlusions.png" "$RUNS/flow-pair/cuda/occlusions.png" \
    && echo "  occlusions: same bytes" || echo "  occlusions: differ"
  rm -rf "$pairs"
  echo "parity: $(seconds_since "$t0") s"
}

# The presets' own choices (half-size matching, sparser grids, a pyramid
# stopped above full size, full-size passes, the smoothness epsilon) on both
# devices. The iteration counts are lowered so that a run takes minutes.
step_presets() {
  local t0 pair preset dev dir t; t0=$(date +%s)
  pair=$(mktemp -d)
  "$BUILD/vemo-synth" "$pair" -3.25 2.75 96 80 7 >/dev/null
  for preset in ultrafast fast quality; do
    for dev in cpu cuda; do
      dir=$(run_dir "preset-$preset/$dev")
      t=$(date +%s)
      (cd "$dir" && $NICE "$BUILD/vemo-flow" --device "$dev" --preset "$preset" "$pair/frame1.ppm" "$pair/frame2.ppm" \
          -o flow.flo --eta 0.6 --fixed-point-iters 2 --solver-iters 3 >run.log 2>run.err) \
        || { echo "preset $preset: $dev run failed:"; grep -v '^GPGPU-Sim' "$dir/run.err" | tail -5; return 1; }
      printf 'preset %s %s %ss; ' "$preset" "$dev" "$(seconds_since "$t")"
    done
    compare_flo "$RUNS/preset-$preset/cpu/flow.flo" "$RUNS/preset-$preset/cuda/flow.flo"
  done
  rm -rf "$pair"
  echo "presets: $(seconds_since "$t0") s"
}

# The default parameters at 96 x 80: more than an hour simulated.
step_default() {
  local t0 pair; t0=$(date +%s)
  pair=$(mktemp -d)
  "$BUILD/vemo-synth" "$pair" 2.5 1.5 96 80 >/dev/null
  vemo_both default-96x80 "$pair"
  rm -rf "$pair"
  echo "default: $(seconds_since "$t0") s"
}

step_speed() { "$ROOT/scripts/gpu-simulated-speed.sh" "$SIM"; }

for step in "${STEPS[@]}"; do "step_$step"; done
exit 0
}
