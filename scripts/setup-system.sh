#!/usr/bin/env bash
# Installs the Debian packages vemo needs, only those that are missing.
#   scripts/setup-system.sh          everything: build, tests, benchmarks,
#                                    video (FFmpeg) and the Python package
#   scripts/setup-system.sh --demo   what scripts/demo.sh builds: a compiler,
#                                    CMake, libpng and libjpeg
set -euo pipefail

packages=(cmake g++ make pkg-config libpng-dev libjpeg-dev)
if [ "${1:-}" != "--demo" ]; then
  packages+=(libgtest-dev libbenchmark-dev libavformat-dev libavcodec-dev libswscale-dev libavutil-dev libopencv-core-dev
             python3 python3-venv python3-dev)
fi
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: system packages already installed (${#packages[@]} checked)"
  exit 0
fi
echo "setup: installing ${missing[*]} with apt-get"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
# apt-get's own progress: one line per package fetched and set up.
$SUDO apt-get install -y --no-install-recommends "${missing[@]}" | grep -E '^(Get:|Setting up)' || true
