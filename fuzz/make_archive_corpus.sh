#!/usr/bin/env bash
# Regenerates the seed corpus of archive_fuzzer: small archives made with Ziploom itself (through
# the frameloom tool, when it is built in build/), with zip and with Python's zipfile, covering
# stored and deflated entries, folders, links, data descriptors, ZIP64 records, code page 437 and
# UTF-8 names and a comment.
set -euo pipefail
cd "$(dirname "$0")"
out=$PWD/corpus/archive
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -f "$out"/*.zip
mkdir -p "$out" "$work/src/animations" "$work/src/images"
printf '{"v":"5.7.1","w":512,"h":256,"layers":[{"c":{"k":[1,0.5,0,1]}}]}' > "$work/src/animations/data.json"
printf '{"animations":[{"id":"data"}]}' > "$work/src/manifest.json"
printf 'png?' > "$work/src/images/img_0.png"
: > "$work/src/empty"
ln -s animations/data.json "$work/src/link"
(cd "$work/src" && zip -qry0 "$out/stored.zip" . && zip -qry "$out/deflated.zip" . &&
  zip -qr - animations manifest.json | cat > "$out/streamed.zip" &&
  cat manifest.json | zip -q "$out/stdin.zip" -)
tool=../build/tools/frameloom/frameloom
if [ -x "$tool" ]; then
  "$tool" archive zip "$work/src" "$out/frameloom-stored.zip"
  "$tool" archive zip "$work/src" "$out/frameloom-deflated.zip" --deflate --keep-parent
fi
python3 ../tests/ziploom/data/make_python_archives.py "$work"
for name in py-names.zip py-cp437.zip; do
  cp "$work/$name" "$out/$name"
done
python3 - "$out" <<'PY'
import os, sys, zipfile
out = sys.argv[1]
with zipfile.ZipFile(os.path.join(out, "zip64.zip"), "w", zipfile.ZIP_DEFLATED) as archive:
    info = zipfile.ZipInfo("animations/data.json")
    info.compress_type = zipfile.ZIP_DEFLATED
    with archive.open(info, "w", force_zip64=True) as entry:
        entry.write(b'{"w":100,"h":100,' * 20 + b'"layers":[]}')
    archive.writestr("folder/", b"")
    zipfile.ZIP64_LIMIT = 1
PY
