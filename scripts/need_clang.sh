#!/usr/bin/env bash
# Installs clang, its sanitizer runtimes and its OpenMP runtime where they
# are missing (for scripts/fuzz.sh and scripts/tsan.sh).
set -euo pipefail
need=(clang libclang-rt-14-dev libomp-dev)
missing=()
for p in "${need[@]}"; do dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p"); done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq && $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
