#!/usr/bin/env bash
# Installs what a fresh Debian machine needs to build and test vemo, then the
# Python package into the virtual environment .venv (numpy, Dask, pytest and
# the build tools from PyPI, then `pip install .` of this tree).
# Idempotent: installs only what is missing; the package's build directory
# (build/python/) is kept, so a second run recompiles only what changed.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake g++ make pkg-config libgtest-dev libbenchmark-dev libpng-dev libjpeg-dev
          libavformat-dev libavcodec-dev libswscale-dev libavutil-dev libopencv-core-dev
          python3 python3-venv python3-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

[ -x .venv/bin/python ] || python3 -m venv .venv
.venv/bin/python -m pip install -q --disable-pip-version-check \
  numpy "dask[distributed]" pytest hypothesis "scikit-build-core>=0.10" "nanobind>=2.0"
# The build tools are installed above, so pip need not fetch them again into
# an isolated environment for every build.
# The package's CUDA backend is compiled where an NVIDIA GPU is visible (or
# when VEMO_PYTHON_CUDA=1 asks for it, to build on one machine for another);
# elsewhere it would never run, and scripts/build.sh already compiles the
# CUDA sources wherever nvcc exists.
cuda_flag=()
if [ "${VEMO_PYTHON_CUDA:-}" != "1" ] && ! { command -v nvidia-smi >/dev/null && nvidia-smi -L 2>/dev/null | grep -q '^GPU'; }; then
  echo "setup: no NVIDIA GPU visible; the Python package is built for the CPU (VEMO_PYTHON_CUDA=1 adds the CUDA backend)"
  cuda_flag=(-C cmake.define.VEMO_ENABLE_CUDA=OFF)
fi
.venv/bin/python -m pip install -q --disable-pip-version-check --no-build-isolation "${cuda_flag[@]}" .
