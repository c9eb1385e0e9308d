#!/usr/bin/env bash
# Configures and builds Frameloom into the given folder (default: build), passing any further
# arguments to CMake.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${1:-build}
shift || true
cmake -S . -B "$build_dir" -G Ninja "$@"
cmake --build "$build_dir" -j "$(nproc)"
