#!/usr/bin/env bash
# Installs what a fresh Debian machine needs to build and test vemo, then the
# Python package into the virtual environment .venv (numpy, Dask, pytest and
# the build tools from PyPI, then `pip install .` of this tree).
# Idempotent: installs only what is missing; the package's build directory
# (build/python/) is kept, so a second run recompiles only what changed.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake g++ make pkg-config libgtest-dev libbenchmark-dev libpng-dev libjpeg-dev
          libavformat-dev libavcodec-dev libswscale-dev libavutil-dev python3 python3-venv python3-dev)
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
  numpy "dask[distributed]" pytest "scikit-build-core>=0.10" "nanobind>=2.0"
# The build tools are installed above, so pip need not fetch them again into
# an isolated environment for every build.
.venv/bin/python -m pip install -q --disable-pip-version-check --no-build-isolation .
