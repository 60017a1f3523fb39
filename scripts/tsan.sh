#!/usr/bin/env bash
# Builds the CPU code and its unit tests with ThreadSanitizer (clang, with
# clang's OpenMP runtime and its Archer tool, which tells ThreadSanitizer
# about OpenMP's own synchronisation) and runs the tests of concurrent work:
# several Engines at once, a computation cancelled from another thread, the
# CPU backend's thread pool, the parallel stages.
#   scripts/tsan.sh [gtest filter]
set -euo pipefail
cd "$(dirname "$0")/.."
filter=${1:-'PublicEngine.ConcurrentEngines*:Cancel.*:ThreadPool.*:*ThreadCount*:*Threads*:RedBlackSor.Passes*'}

scripts/need_clang.sh
archer=$(ls /usr/lib/llvm-*/lib/libarcher.so 2>/dev/null | tail -1)
[ -n "$archer" ] || { echo "tsan: libarcher.so (libomp-dev) not found" >&2; exit 1; }

CC=clang CXX=clang++ cmake -S . -B build-tsan -DVEMO_TSAN=ON -DVEMO_BUILD_BENCH=OFF -DVEMO_BUILD_PYTHON=OFF \
      -DVEMO_ENABLE_VIDEO=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 >/dev/null
cmake --build build-tsan -j "$(env -u OMP_NUM_THREADS -u OMP_THREAD_LIMIT nproc)" --target vemo_tests
# Two OpenMP threads at least, so that the parallel stages run in parallel.
OMP_NUM_THREADS=2 OMP_TOOL_LIBRARIES="$archer" VEMO_DEVICE=cpu \
  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
  build-tsan/vemo_tests --gtest_filter="$filter"
