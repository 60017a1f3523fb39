#!/usr/bin/env bash
# Makes the virtual environment .venv (numpy, Dask, pytest and the build
# tools from PyPI) and installs this tree's Python package into it with
# `pip install .`, which compiles the library once more (a few minutes).
# Idempotent: the package's build folder (build/python/) is kept, so a
# second run recompiles only what changed.
#   setup-python.sh --deps-only   the environment alone, without the package
#                                 (the tests use the one scripts/build.sh
#                                 builds into build/python-package/)
set -euo pipefail
cd "$(dirname "$0")/.."

[ -x .venv/bin/python ] || python3 -m venv .venv
echo "setup: Python packages into .venv (numpy, dask[distributed], pytest, hypothesis, scikit-build-core, nanobind)"
.venv/bin/python -m pip install -q --disable-pip-version-check \
  numpy "dask[distributed]" pytest hypothesis "scikit-build-core>=0.10" "nanobind>=2.0"
# The build tools are installed above, so pip need not fetch them again into
# an isolated environment for every build.
# The package's CUDA backend is compiled where an NVIDIA GPU is visible (or
# when VEMO_PYTHON_CUDA=1 asks for it, to build on one machine for another);
# elsewhere it would never run, and scripts/build.sh already compiles the
# CUDA sources wherever nvcc exists.
[ "${1:-}" = "--deps-only" ] && exit 0
cuda_flag=()
if [ "${VEMO_PYTHON_CUDA:-}" != "1" ] && ! { command -v nvidia-smi >/dev/null && nvidia-smi -L 2>/dev/null | grep -q '^GPU'; }; then
  echo "setup: no NVIDIA GPU visible; the Python package is built for the CPU (VEMO_PYTHON_CUDA=1 adds the CUDA backend)"
  cuda_flag=(-C cmake.define.VEMO_ENABLE_CUDA=OFF)
fi
source scripts/progress.sh
long_step "setup: pip install . (compiles the library for Python)" build/python-install.log \
  .venv/bin/python -m pip install -v --disable-pip-version-check --no-build-isolation "${cuda_flag[@]}" .
