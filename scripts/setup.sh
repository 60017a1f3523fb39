#!/usr/bin/env bash
# Installs what a fresh Debian machine needs to build and test vemo.
# Idempotent: does nothing when everything is already present.
set -euo pipefail

packages=(cmake g++ make pkg-config libgtest-dev libbenchmark-dev libpng-dev libjpeg-dev
          libavformat-dev libavcodec-dev libswscale-dev libavutil-dev)
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
