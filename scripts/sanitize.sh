#!/usr/bin/env bash
# Builds the tests with a sanitizer into its own folder and runs them; any finding fails the run.
#   scripts/sanitize.sh address [folder]  AddressSanitizer + UndefinedBehaviorSanitizer +
#                                         LeakSanitizer over the default tests (-LE large)
#   scripts/sanitize.sh thread [folder]   ThreadSanitizer over the tests labelled "concurrent"
# Further arguments after the folder go to CMake. The build is -O1 without debug information:
# the reports still name functions, and the build takes far less time.
set -euo pipefail
cd "$(dirname "$0")/.."
sanitizer=${1:?usage: scripts/sanitize.sh address|thread [folder] [cmake arguments]}
case "$sanitizer" in
  address) build_dir=${2:-build-asan} target=all selection=(-LE large) ;;
  thread) build_dir=${2:-build-tsan} target=concurrent_tests selection=(-L concurrent) ;;
  *) echo "scripts/sanitize.sh: unknown sanitizer '$sanitizer'" >&2; exit 2 ;;
esac
shift $(($# < 2 ? $# : 2))

# ThreadSanitizer cannot map its shadow memory under the address randomisation of newer kernels
# (vm.mmap_rnd_bits above 28), so its build (which lists each executable's tests) and its tests
# run with randomisation turned off where the machine allows that.
run=()
if [ "$sanitizer" = thread ] && setarch "$(uname -m)" -R true 2>/dev/null; then
  run=(setarch "$(uname -m)" -R)
fi

scripts/dependencies.sh
cmake -S . -B "$build_dir" -G Ninja -DFRAMELOOM_SANITIZER="$sanitizer" \
  -DCMAKE_BUILD_TYPE=Sanitize "$@"
"${run[@]}" cmake --build "$build_dir" --target "$target" -j "$(nproc)"

# Every report is fatal; UBSan already stops because the build does not let it recover.
export ASAN_OPTIONS=detect_leaks=1:halt_on_error=1:abort_on_error=1:detect_stack_use_after_return=1:strict_init_order=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
"${run[@]}" ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)" "${selection[@]}"
