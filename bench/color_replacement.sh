#!/usr/bin/env bash
# Runs the colour replacement benchmark and its peer, lottie-colorify under Node, on the same
# documents in the same run, and prints both throughputs and their ratio, together with the
# plain key scan and the whole recolouring of a 1 MB .lottie.
#
# Usage: bench/color_replacement.sh [BUILD_DIR] [CORPUS_FOLDER]
#   BUILD_DIR      configured with -DFRAMELOOM_BUILD_BENCH=ON (default: build-bench, built here)
#   CORPUS_FOLDER  Lottie *.json documents (default: $FRAMELOOM_CORPUS, else ../shared/corpus
#                  next to the repository)
# lottie-colorify is installed with npm into $FRAMELOOM_BENCH_NPM (default
# /tmp/frameloom-bench-npm), never into the repository.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-bench}
corpus=${2:-${FRAMELOOM_CORPUS:-../shared/corpus}}
scratch=${FRAMELOOM_BENCH_NPM:-/tmp/frameloom-bench-npm}

if [ ! -x "$build/bench/bench_color_replacement" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DFRAMELOOM_BUILD_BENCH=ON \
    -DFRAMELOOM_BUILD_TESTS=OFF > /dev/null
  cmake --build "$build" --target bench_color_replacement -j 2
fi
if [ ! -d "$scratch/node_modules/lottie-colorify" ]; then
  mkdir -p "$scratch"
  npm install --prefix "$scratch" --no-audit --no-fund --silent lottie-colorify
fi
export NODE_PATH="$scratch/node_modules"

# Both sides run on the documents lottie-colorify can process (it throws on some).
mapfile -t documents < <(node bench/lottie_colorify_peer.js --accepted "$corpus"/*.json)
all=$(find "$corpus" -maxdepth 1 -name '*.json' | wc -l)
echo "documents: ${#documents[@]} of $all in $corpus"

peer=$(node bench/lottie_colorify_peer.js "${documents[@]}" | awk '{print $2}')
result="$scratch/bench_color_replacement.json"
"$build/bench/bench_color_replacement" --benchmark_out="$result" --benchmark_out_format=json \
  --benchmark_filter='^(ReplaceColors|PlainKeyScan|RecolorOneMegabyteLottie)($|/real_time)' \
  "${documents[@]}" > /dev/null
# Each document alone, every corpus document (the peer's refusals included).
each="$scratch/bench_color_replacement_each.json"
"$build/bench/bench_color_replacement" --benchmark_out="$each" --benchmark_out_format=json \
  --benchmark_filter='^(ReplaceColors|PlainKeyScan)/' "$corpus" > /dev/null

python3 - "$result" "$each" "$peer" <<'PY'
import json, sys
runs = {b["name"]: b for b in json.load(open(sys.argv[1]))["benchmarks"]}
each = {b["name"]: b for b in json.load(open(sys.argv[2]))["benchmarks"]}
peer = float(sys.argv[3])
replace = runs["ReplaceColors"]["bytes_per_second"] / 1e6
scan = runs["PlainKeyScan"]["bytes_per_second"] / 1e6
recolor = runs["RecolorOneMegabyteLottie/real_time"]
print("throughputs per CPU second (wall time also counts other processes on a busy machine)")
print(f"replacement       {replace:10.1f} MB/s")
print(f"lottie-colorify   {peer:10.1f} MB/s   replacement / lottie-colorify = {replace / peer:.1f} x")
print(f"plain key scan    {scan:10.1f} MB/s   replacement time / key scan time = {scan / replace:.2f} x")
print(f"recolor 1 MB .lottie: {recolor['real_time']:.1f} ms wall, {recolor['cpu_time']:.1f} ms CPU")
print()
print("each document alone, CPU microseconds: replacement, key scan, replacement / key scan")
cpu = {}  # (benchmark, document) -> CPU microseconds
for name, run in each.items():
    benchmark, document = name.split("/", 1)
    cpu[benchmark, document.removesuffix("/min_time:0.100")] = run["cpu_time"] / 1e3
rows = [(cpu[key], cpu["PlainKeyScan", key[1]], key[1]) for key in cpu if key[0] == "ReplaceColors"]
rows.sort(key=lambda row: row[0] / row[1])
for replaced, scanned, document in rows:
    print(f"{replaced:10.1f} {scanned:10.1f} {replaced / scanned:6.2f} x  {document}")
total_replaced = sum(row[0] for row in rows)
total_scanned = sum(row[1] for row in rows)
print(f"{total_replaced:10.1f} {total_scanned:10.1f} {total_replaced / total_scanned:6.2f} x  "
      f"all {len(rows)} documents")
print(f"worst: {rows[-1][2]} at {rows[-1][0] / rows[-1][1]:.2f} x")
PY
