#!/usr/bin/env bash
# Installs what is missing, builds Frameloom and runs its main job: for now, listing an archive
# of the project's own ZIP library sources.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/dependencies.sh
scripts/build.sh build -DFRAMELOOM_BUILD_TESTS=OFF
build/tools/frameloom/frameloom --version
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
zip -qry "$work/ziploom-sources.zip" README.md src/ziploom
build/tools/frameloom/frameloom archive list "$work/ziploom-sources.zip"
