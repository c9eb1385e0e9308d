#!/usr/bin/env bash
# Installs what is missing, builds the frameloom tool and runs its main job, the demo, writing
# into ./frameloom-demo (or the folder given as the first argument).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/dependencies.sh
cmake -S . -B build -G Ninja
cmake --build build --target frameloom_tool -j "$(nproc)"
build/tools/frameloom/frameloom demo --output "${1:-frameloom-demo}"
