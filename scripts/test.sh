#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite (C++ tests, then the Python
# package's tests), then the CPU unit tests again under AddressSanitizer and
# UndefinedBehaviorSanitizer. Tests labelled "gpu" skip themselves where no
# GPU is usable.
#   VEMO_SKIP_SANITIZERS=1 scripts/test.sh   skips the sanitizer pass.
set -euo pipefail
cd "$(dirname "$0")/.."
# nproc counts OMP_NUM_THREADS, which is set below for the tests.
cores=$(env -u OMP_NUM_THREADS -u OMP_THREAD_LIMIT nproc)
stage() { echo "== $1 (at ${SECONDS} s)"; }
stage "set-up"
scripts/setup.sh
stage "build"
scripts/build.sh
stage "C++ tests"

# ctest runs one test process per core; each uses one OpenMP thread and
# sleeps instead of spinning while it waits, so that processes do not fight
# over the cores. Tests of thread-count independence set their own counts.
export OMP_NUM_THREADS=1 OMP_WAIT_POLICY=passive
ctest --test-dir build --output-on-failure -j "$cores"

stage "Python package (installed by scripts/setup.sh into .venv)"
.venv/bin/python -m pytest -q tests/python

if [ "${VEMO_SKIP_SANITIZERS:-0}" != "1" ]; then
  stage "unit tests under AddressSanitizer + UndefinedBehaviorSanitizer"
  # -O1: half the compile time of -O2 here, and the tests run as fast.
  cmake -S . -B build-asan -DVEMO_SANITIZE=ON -DVEMO_BUILD_BENCH=OFF \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 >/dev/null
  cmake --build build-asan -j "$cores"
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --test-dir build-asan --output-on-failure -j "$cores" -LE 'gpu|accuracy'
fi
stage "done"
