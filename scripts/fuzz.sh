#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a bounded time.
#   scripts/fuzz.sh [seconds per target (default 60)] [target ...]
# Crashes land in out/fuzz/<target>/ as crash-* files; keep each one as a
# regression test once fixed.
set -euo pipefail
cd "$(dirname "$0")/.."
secs=${1:-60}
shift || true

scripts/need_clang.sh

CC=clang CXX=clang++ cmake -S . -B build-fuzz -DVEMO_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-fuzz -j "$(env -u OMP_NUM_THREADS -u OMP_THREAD_LIMIT nproc)"

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in fuzz/*_fuzz.cpp; do targets+=("$(basename "$f" .cpp)"); done
fi
for t in "${targets[@]}"; do
  corpus=fuzz/corpus/${t%_fuzz}
  work=out/fuzz/$t
  mkdir -p "$work/corpus" "$corpus"
  echo "== $t for ${secs}s"
  # stdout of the target is closed (-close_fd_mask=1): the readers print
  # their rejection messages there and would flood the log.
  "build-fuzz/$t" "$work/corpus" "$corpus" -max_total_time="$secs" -timeout=10 \
      -rss_limit_mb=2048 -max_len=4096 -close_fd_mask=1 -artifact_prefix="$work/" \
      2>&1 | grep -E '^(#[0-9]+ +DONE|Done|==[0-9]+==ERROR|SUMMARY|.*(crash|timeout|leak|oom)-)' || true
done
