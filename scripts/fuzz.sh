#!/usr/bin/env bash
# Builds the libFuzzer targets with Clang, AddressSanitizer and UBSan into build-fuzz (or $2) and
# runs each for the given number of seconds (default 60), starting from a scratch copy of its seed
# corpus so that fuzz/corpus never changes. A crash, a leak, a timeout or running out of memory
# fails the run; the input that caused it is kept in <folder>/findings.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
build_dir=${2:-build-fuzz}
shift $(($# < 2 ? $# : 2))

# Each target with the options it is always run with.
declare -A options=(
  [archive_fuzzer]="-max_len=65536"
  [fuzz_color_replacement]="-dict=fuzz/color_replacement.dict"
  [fuzz_document_repairs]="-dict=fuzz/lottie_document.dict -max_len=16384"
)
declare -A corpus=(
  [archive_fuzzer]=archive
  [fuzz_color_replacement]=color_replacement
  [fuzz_document_repairs]=document
)

scripts/dependencies.sh
cmake -S . -B "$build_dir" -G Ninja -DFRAMELOOM_BUILD_FUZZ=ON -DFRAMELOOM_BUILD_TESTS=OFF \
  -DFRAMELOOM_SANITIZER=address -DCMAKE_BUILD_TYPE=Sanitize \
  -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang "$@"
cmake --build "$build_dir" --target "${!options[@]}" -j "$(nproc)"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
findings=$build_dir/findings
mkdir -p "$findings"
export ASAN_OPTIONS=detect_leaks=1
for target in "${!options[@]}"; do
  cp -r "fuzz/corpus/${corpus[$target]}" "$work/$target"
  echo "== $target: ${seconds}s"
  # shellcheck disable=SC2086 # the options are words
  "$build_dir/fuzz/$target" ${options[$target]} -max_total_time="$seconds" -timeout=30 \
    -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$findings/$target-" \
    "$work/$target"
done
