#!/usr/bin/env bash
# Installs what is missing, builds Frameloom and runs its unit tests (the "large" ones excepted).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/dependencies.sh
scripts/build.sh build
ctest --test-dir build --output-on-failure -j "$(nproc)" -LE large
