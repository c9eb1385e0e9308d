#!/usr/bin/env bash
# Installs what is missing, builds Frameloom and runs its main job.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/dependencies.sh
scripts/build.sh build -DFRAMELOOM_BUILD_TESTS=OFF
build/tools/frameloom/frameloom --version
