#!/usr/bin/env bash
# Builds the test suite with clang under a sanitizer (address: ASan+UBSan; thread: TSan) in its
# own folder and runs it: scripts/sanitized-suite.sh address|thread [CTEST ARGS...]
# The folder is AR_BUILD_DIR, or build/asan or build/tsan of the checkout; the suite's CTest gate
# sets it inside the build folder that runs the gate, so that runs in two build folders of one
# checkout keep apart.
set -euo pipefail
kind=$1
shift
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${AR_BUILD_DIR:-"$root/build/${kind:0:1}san"}
echo "sanitized-suite: $kind suite in $dir"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export LSAN_OPTIONS="suppressions=$root/sanitizers/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export TSAN_OPTIONS="suppressions=$root/sanitizers/tsan.supp:halt_on_error=1:second_deadlock_stack=1"
args=(-DAR_SANITIZE="$kind" -DAR_GATES=OFF)
# ThreadSanitizer sees reference counting only in an instrumented libutils (built once, cached).
if [ "$kind" = thread ]; then
  args+=(-DAR_UTILS_LIB="$("$root/scripts/build-tsan-libutils.sh")")
fi
CC=clang CXX=clang++ "$root/scripts/build.sh" "$dir" "${args[@]}"
cd "$dir"
ctest --output-on-failure -j"$(nproc)" "$@"
