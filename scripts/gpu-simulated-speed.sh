#!/usr/bin/env bash
# Estimated device time of one 640 x 480 pair on the simulator's RTX 2060
# model (GPGPU-Sim's timing model, SM75_RTX2060 configuration).
#
#   scripts/gpu-simulated-speed.sh SIMULATOR_DIR [WxH [MATCH_WxH [SOLVE_WxH]]]
#
# Needs build-sim/ from scripts/gpu-simulated.sh (build step). Runs each
# benchmark of src/backends/cuda/cuda_stages_bench.cpp once:
#   1. functionally at 72 x 64 (a level above the one-block size) with three
#      iteration shapes, to count the launches of a level, of a fixed-point
#      step and of a solver iteration;
#   2. under the timing model: a level, the resampling and warping, the HOG
#      fields at WxH (default 160x120), the matching at MATCH_WxH (default
#      64x48: its search visits every candidate of a 161 x 161 window, far
#      too many instructions to model at larger frames), a level of 64 x 63
#      in one thread block at the default iterations, and two solver
#      iterations alone at SOLVE_WxH (default 320x240: the solver's kernels
#      are most of a level, and a larger launch fills the card better);
# then scripts/gpu_sim_estimate.py scales the cycles of each kernel to the
# levels of a default 640 x 480 run. Hours on one core; logs and the table
# go to build-sim/sim-runs/speed/; RUNS="NAME ..." repeats only those runs.
{
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
SIM="$(cd "${1:?usage: scripts/gpu-simulated-speed.sh SIMULATOR_DIR [WxH [MATCH_WxH [SOLVE_WxH]]]}" && pwd)"
SIZE="${2:-160x120}"
MATCH_SIZE="${3:-64x48}"
SOLVE_SIZE="${4:-320x240}"
BUILD="${BUILD:-$ROOT/build-sim}"
OUT="$BUILD/sim-runs/speed"
BENCH="$BUILD/vemo_bench"
[ -x "$BENCH" ] || { echo "no $BENCH: run scripts/gpu-simulated.sh $SIM build first"; exit 1; }
export CUDA_INSTALL_PATH="$SIM/cuda"
set +u
# shellcheck disable=SC1091
source "$SIM/gpgpu-sim/setup_environment" release >/dev/null
set -u
CONFIG="$SIM/gpgpu-sim/configs/tested-cfgs/SM75_RTX2060"
mkdir -p "$OUT"

# One benchmark in a folder of its own: NAME MODE(1 functional, 0 timing) SIZE FILTER
# RUNS="level hog" runs only those (the others' logs are kept).
bench() {
  local name=$1 mode=$2 size=$3 filter=$4 dir="$OUT/$1" t
  [ -z "${RUNS:-}" ] || [[ " $RUNS " == *" $name "* ]] || return 0
  rm -rf "$dir"
  mkdir -p "$dir"
  cp "$CONFIG/gpgpusim.config" "$CONFIG"/config_turing_islip.icnt "$dir/"
  t=$(date +%s)
  (cd "$dir" && PTX_SIM_MODE_FUNC=$mode VEMO_BENCH_SIZE=$size VEMO_BENCH_MATCH_SIZE=$size \
     nice -n 10 "$BENCH" --benchmark_filter="$filter" --benchmark_min_time=0.000001 >run.log 2>&1) \
    || { echo "$name failed:"; tail -5 "$dir/run.log"; exit 1; }
  echo "$name ($size, $([ "$mode" = 1 ] && echo functional || echo timing model)): $(( $(date +%s) - t )) s"
}

bench count-1-2 1 72x64 '^BM_CudaLevel/1/2$'
bench count-1-3 1 72x64 '^BM_CudaLevel/1/3$'
bench count-2-2 1 72x64 '^BM_CudaLevel/2/2$'
bench level 0 "$SIZE" '^BM_CudaLevel/1/2$'
bench resample 0 "$SIZE" '^BM_CudaResampleAndWarp$'
bench hog 0 "$SIZE" '^BM_CudaHogFields$'
bench matching 0 "$MATCH_SIZE" '^BM_CudaMatching$'
bench one-block 0 64x63 '^BM_CudaLevelInOneBlock$'
bench solve 0 "$SOLVE_SIZE" '^BM_CudaSolve$'
python3 "$ROOT/scripts/gpu_sim_estimate.py" "$OUT" "$SIZE" "$MATCH_SIZE" "$SOLVE_SIZE" | tee "$OUT/estimate.md"
exit 0
}
