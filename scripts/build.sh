#!/usr/bin/env bash
# Configures and builds everything in build/ (Release): the library, the
# programs, the tests and the benchmarks. CUDA is compiled when nvcc is on the
# PATH; otherwise the CPU backend alone is built. Extra arguments go to the
# CMake configuration (e.g. -DVEMO_ENABLE_CUDA=OFF).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/progress.sh
cores=$(env -u OMP_NUM_THREADS -u OMP_THREAD_LIMIT nproc)
# scripts/demo.sh configures build/ without tests and without CUDA on a
# machine without a GPU: switch everything back on.
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DVEMO_BUILD_TESTS=ON -DVEMO_BUILD_BENCH=ON \
      -DVEMO_ENABLE_CUDA=ON "$@" >/dev/null
long_step "build" build/build.log cmake --build build -j "$cores"
