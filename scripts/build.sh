#!/usr/bin/env bash
# Configures and builds vemo in build/ (Release). CUDA is compiled when nvcc
# is on the PATH; otherwise the CPU backend alone is built.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release "$@" >/dev/null
cmake --build build -j "$(env -u OMP_NUM_THREADS -u OMP_THREAD_LIMIT nproc)"
