#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite. Tests labelled "gpu" skip
# themselves where no GPU is usable.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh
ctest --test-dir build --output-on-failure -j "$(nproc)"
