#!/usr/bin/env bash
# Installs what a fresh Debian machine needs to build and test vemo (the
# system packages), then the Python package into the virtual environment
# .venv. Both steps install only what is missing; see setup-system.sh and
# setup-python.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-system.sh
scripts/setup-python.sh
