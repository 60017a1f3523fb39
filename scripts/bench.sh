#!/usr/bin/env bash
# End-to-end timing of vemo at 640 x 480 with the default parameters.
#   scripts/bench.sh [runs (default 5)] [threads (default: all cores)]
# Runs the program several times on a generated pair, prints the median of
# each timing line it reports and the ratio of the variational part to its
# target on a 2-core machine (1.5 s). Stage benchmarks: build/vemo_bench.
# Where python3-opencv is installed, OpenCV's DeepFlow (the variational
# method without descriptor matching) and DIS (medium preset) are timed on
# the same pair in the same run, with the same thread count, and the ratios
# printed. BUSY=1 scripts/bench.sh runs everything beside a busy loop on
# every core, as on a machine that other programs share.
# With a usable GPU the CUDA backend runs; VEMO_DEVICE=cpu scripts/bench.sh
# measures the CPU backend there.
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-5}
threads=${2:-$(nproc)}
scripts/build.sh >/dev/null

dir=out/bench
mkdir -p "$dir"
build/vemo-synth "$dir" 3.5 -2.25 640 480 3 >/dev/null
busy=()
stop_busy() { [ ${#busy[@]} -eq 0 ] || kill "${busy[@]}" 2>/dev/null || true; }
trap stop_busy EXIT
if [ "${BUSY:-0}" = "1" ]; then
  for _ in $(seq "$(env -u OMP_NUM_THREADS -u OMP_THREAD_LIMIT nproc)"); do
    nice -n 0 sh -c 'while :; do :; done' &
    busy+=($!)
  done
fi
logs=()
for i in $(seq "$runs"); do
  log="$dir/run$i.log"
  start=$(date +%s.%N)
  OMP_NUM_THREADS=$threads build/vemo "$dir/frame1.ppm" "$dir/frame2.ppm" >"$log"
  end=$(date +%s.%N)
  awk -v s="$start" -v e="$end" 'BEGIN { printf "Wall time = %f \n", (e - s) * 1000 }' >>"$log"
  logs+=("$log")
done

load=""
[ ${#busy[@]} -gt 0 ] && load=", beside ${#busy[@]} busy loop(s)"
echo "vemo, 640 x 480, default parameters, $threads thread(s)$load, median of $runs runs (ms):"
for label in "Wall time" "Total time" "Var time" "HOG time" "HOG creation" "HOG match" "Solver time" \
             "MakeMatrix time" "Interp time" "downsampling time" "Filter time" "Memcpy time"; do
  values=$(grep -h "^$label = " "${logs[@]}" | sed -E 's/.*= *([0-9.]+).*/\1/' | sort -g)
  [ -z "$values" ] && continue
  n=$(echo "$values" | wc -l)
  median=$(echo "$values" | sed -n "$(( (n + 1) / 2 ))p")
  printf '  %-18s %10.1f\n' "$label" "$median"
done
median_of() {
  grep -h "^$1 = " "${logs[@]}" | sed -E 's/.*= *([0-9.]+).*/\1/' | sort -g | sed -n "$(( (runs + 1) / 2 ))p"
}
var=$(median_of "Var time")
total=$(median_of "Total time")
awk -v v="$var" 'BEGIN { printf "  variational part / 1.5 s CPU target (2 cores) = %.2f\n", v / 1500 }'
# "Total time" is the whole method from the frames in memory to the flow,
# without process start-up: the figure the GPU target applies to.
awk -v t="$total" 'BEGIN { printf "  whole method / 100 ms GPU target (H100 class) = %.2f\n", t / 100 }'

peers="$dir/peers.log"
if /usr/bin/python3 -c 'import cv2' 2>/dev/null; then
  /usr/bin/python3 scripts/bench_peers.py "$dir/frame1.ppm" "$dir/frame2.ppm" "$runs" "$threads" >"$peers"
  echo "peers on the same pair, same run, $threads thread(s), median of $runs runs (ms):"
  while IFS= read -r line; do
    name=${line% time = *}
    ms=$(echo "$line" | sed -E 's/.*= *([0-9.]+).*/\1/')
    printf '  %-18s %10.1f\n' "$name" "$ms"
    awk -v t="$total" -v p="$ms" -v n="$name" 'BEGIN { printf "  vemo Total time / %s = %.2f\n", n, t / p }'
  done <"$peers"
else
  echo "(python3-opencv not installed: DeepFlow and DIS not timed)"
fi
