#!/usr/bin/env bash
# The first command to run on a fresh clone. Installs the few system packages
# the programs need (only those missing), builds vemo-synth, vemo-flow and
# vemo-eval in build/ (with the CUDA backend only where an NVIDIA GPU is
# visible; no tests, no Python package), generates a frame pair with known
# motion, computes its flow and a picture of it, and ends with a summary:
# where the results are, how long the flow took and how close it is to the
# true motion.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/progress.sh
start=$SECONDS
cores=$(env -u OMP_NUM_THREADS -u OMP_THREAD_LIMIT nproc)

echo "demo: 1/4 system packages"
scripts/setup-system.sh --demo
setup_s=$((SECONDS - start))

gpu=no
if command -v nvidia-smi >/dev/null && nvidia-smi -L 2>/dev/null | grep -q '^GPU'; then gpu=yes; fi
if [ -f build/CMakeCache.txt ]; then
  echo "demo: 2/4 build/ is configured already; its settings are kept"
  configure=()
else
  cuda=OFF
  [ "$gpu" = yes ] && command -v nvcc >/dev/null && cuda=ON
  echo "demo: 2/4 configuring build/ (CUDA backend: $cuda; NVIDIA GPU visible: $gpu)"
  configure=(-DCMAKE_BUILD_TYPE=Release -DVEMO_ENABLE_CUDA=$cuda -DVEMO_BUILD_TESTS=OFF -DVEMO_BUILD_BENCH=OFF)
fi
mkdir -p build
cmake -S . -B build "${configure[@]}" >build/demo-configure.log 2>&1 || { cat build/demo-configure.log; exit 1; }
grep '^-- vemo:' build/demo-configure.log | sed 's/^-- vemo:/demo:  /' || true

echo "demo: 3/4 compiling the library and three programs on $cores cores (about a minute on 2 cores without CUDA)"
build_start=$SECONDS
long_step "demo: build" build/demo-build.log cmake --build build -j "$cores" --target vemo-synth vemo-flow vemo-eval
build_s=$((SECONDS - build_start))

sample=out/demo
echo "demo: 4/4 flow of a generated 320 x 240 pair"
build/vemo-synth "$sample" 2.5 1.5 320 240
wrote=$(build/vemo-flow "$sample/frame1.ppm" "$sample/frame2.ppm" -o "$sample/flow.flo" --viz "$sample/flow.png" --legend)
echo "$wrote"
# "Wrote ... (320 x 240, 1.23 s on the cpu backend)"
seconds=$(sed -n 's/.*, \([0-9.]*\) s on the \([a-z]*\) backend.*/\1 s on the \2 backend/p' <<<"$wrote")
json=$(build/vemo-eval --json "$sample/flow.flo" "$sample/truth.flo")
measure() { sed -n "s/.*\"$1\": \([^,}]*\).*/\1/p" <<<"$json"; }
epe=$(printf '%.3f' "$(measure epe)")
aae=$(printf '%.2f' "$(measure aae)")

total=$((SECONDS - start))
cat <<SUMMARY

demo: done in $((total / 60)) min $((total % 60)) s (set-up ${setup_s} s, build ${build_s} s)
  frames    $sample/frame1.ppm and frame2.ppm: 320 x 240 pixels of a random texture;
            frame 2 is frame 1 moved by 2.5 pixels right and 1.5 pixels down
  flow      $sample/flow.flo: one (u, v) vector per pixel, Middlebury .flo format
  picture   $sample/flow.png: colour = direction of motion, brightness = length
            (the colour wheel on the right is the key)
  time      $seconds
  accuracy  average angular error (AAE) $aae degrees: the computed vectors point on
            average $aae degrees away from the true direction (0 is perfect)
            end-point error (EPE) $epe pixels: average distance between computed
            and true vector ($sample/truth.flo holds the true motion)
  next      build/vemo-flow --help; docs/tour.md; scripts/test.sh builds and runs all tests
SUMMARY
