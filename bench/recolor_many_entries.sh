#!/usr/bin/env bash
# Recolouring an archive with many entries against unpacking and packing the same archive with
# the tool: recolouring does the same two jobs plus the colours, so it should take at most a few
# times as long. Usage: bench/recolor_many_entries.sh [TOOL] [ENTRIES] (default 200000).
set -euo pipefail
tool=$(realpath "${1:-build/tools/frameloom/frameloom}")
entries=${2:-200000}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
python3 - "$entries" <<'PY'
import sys, zipfile
with zipfile.ZipFile("many.lottie", "w", zipfile.ZIP_STORED) as z:
    z.writestr("animations/a.json", '{"w":100,"h":100,"fr":30,"ip":0,"op":30,"layers":'
               '[{"ty":4,"shapes":[{"ty":"fl","c":{"a":0,"k":[1,0,0,1]}}]}]}')
    for i in range(int(sys.argv[1])):
        z.writestr("extra/%03d/f%06d.txt" % (i // 1000, i), "x")
PY
seconds() { local start=$EPOCHREALTIME; "$@" >/dev/null; echo "$EPOCHREALTIME - $start" | bc; }
unzip_time=$(seconds "$tool" archive unzip many.lottie unpacked)
zip_time=$(seconds "$tool" archive zip unpacked repacked.lottie)
recolor_time=$(TMPDIR=$work seconds "$tool" recolor many.lottie --colors '#00ff00' --output out.lottie)
echo "entries: $entries"
echo "archive unzip + archive zip: $unzip_time s + $zip_time s"
echo "recolor: $recolor_time s"
echo "ratio: $(echo "scale=2; $recolor_time / ($unzip_time + $zip_time)" | bc)"
