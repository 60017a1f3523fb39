#!/usr/bin/env bash
# What CI runs: set-up, build, the C++ tests, the Python package's tests, the
# examples of README.md and docs/, then the CPU unit tests again under
# AddressSanitizer and UndefinedBehaviorSanitizer. Each step is announced
# with what it does and how long it took; the end lists every test that was
# skipped here and why (no GPU, no ../shared/data beside the clone, ...).
#   VEMO_SKIP_SANITIZERS=1 scripts/test.sh   skips the sanitizer pass.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/progress.sh
# nproc counts OMP_NUM_THREADS, which is set below for the tests.
cores=$(env -u OMP_NUM_THREADS -u OMP_THREAD_LIMIT nproc)
mkdir -p build
report=build/test-summary.txt
: >"$report"
step_name="" step_start=0
step() {
  if [ -n "$step_name" ]; then
    printf '   %-34s %5d s\n' "$step_name" $((SECONDS - step_start)) >>"$report"
    echo "== $step_name: $((SECONDS - step_start)) s"
  fi
  step_name=$1 step_start=$SECONDS
  [ -n "$1" ] && echo "== $1 (${2:-})"
  return 0
}

step "set-up" "system packages, then the Python environment .venv (numpy, Dask, pytest, nanobind)"
scripts/setup-system.sh
scripts/setup-python.sh --deps-only
step "build" "library, programs, tests and the Python module in build/; the CUDA backend too where nvcc is on the PATH"
scripts/build.sh -DVEMO_BUILD_PYTHON=ON -DPython_EXECUTABLE="$PWD/.venv/bin/python"
# The Python tests and examples import this build's package
# (build/python-package/vemo: the files of python/vemo/ and the module), so
# the library is compiled once for both.
export PYTHONPATH="$PWD/build/python-package${PYTHONPATH:+:$PYTHONPATH}"

step "C++ tests" "ctest, one test process per core"
# Each test process uses one OpenMP thread and sleeps instead of spinning
# while it waits, so that processes do not fight over the cores. Tests of
# thread-count independence set their own counts.
export OMP_NUM_THREADS=1 OMP_WAIT_POLICY=passive
ctest --test-dir build --output-on-failure -j "$cores" | grep -vE '^ +Start +[0-9]+:|Test +#[0-9]+: .* Passed'
python3 scripts/skipped_tests.py build "C++: " >build/skipped.txt

step "Python tests" "pytest tests/python on the package of build/python-package"
.venv/bin/python -m pytest -q -rs tests/python | tee build/pytest.log
sed -n 's/^SKIPPED \[[0-9]*\] /Python: /p' build/pytest.log >>build/skipped.txt

step "documented examples" "every shell and Python block of README.md and docs/, on small generated inputs"
.venv/bin/python scripts/docs_examples.py --build build | tee build/docs-examples.log
sed -n 's/^docs:   skipped /docs: /p' build/docs-examples.log >>build/skipped.txt

if [ "${VEMO_SKIP_SANITIZERS:-0}" != "1" ]; then
  step "sanitizers" "the CPU code compiled again with ASan + UBSan in build-asan/ (most of this run's time on 2 cores), then its unit tests"
  # -O1: half the compile time of -O2 here, and the tests run as fast.
  cmake -S . -B build-asan -DVEMO_SANITIZE=ON -DVEMO_BUILD_BENCH=OFF \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 >/dev/null
  long_step "sanitizers: build" build-asan/build.log cmake --build build-asan -j "$cores"
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --test-dir build-asan --output-on-failure -j "$cores" -LE 'gpu|accuracy' |
    grep -vE '^ +Start +[0-9]+:|Test +#[0-9]+: .* Passed'
else
  echo "sanitizers: VEMO_SKIP_SANITIZERS=1" >>build/skipped.txt
fi
step ""

echo
echo "== all steps passed in $SECONDS s:"
cat "$report"
if [ -s build/skipped.txt ]; then
  echo
  echo "!! NOT CHECKED BY THIS RUN: $(wc -l <build/skipped.txt) groups of tests or examples were skipped:"
  sed 's/^/!!   /' build/skipped.txt
fi
