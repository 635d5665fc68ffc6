#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan+UBSan) and runs each for SECONDS (default 60) from its
# seed corpus in fuzzers/corpus/, printing executions per second and the total. Fails on any crash
# or sanitizer report outside sanitizers/*.supp. The build folder is AR_BUILD_DIR, or build/fuzz of
# the checkout (the CTest gate sets it inside the build folder that runs the gate).
# scripts/run-fuzzers.sh [SECONDS] [FUZZER...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
shift || true
dir=${AR_BUILD_DIR:-"$root/build/fuzz"}
echo "run-fuzzers: building in $dir"
CC=clang CXX=clang++ "$root/scripts/build.sh" "$dir" -DAR_SANITIZE=fuzzer -DBUILD_TESTING=OFF \
  -DAR_GATES=OFF >/dev/null
export ASAN_OPTIONS="detect_leaks=1"
export LSAN_OPTIONS="suppressions=$root/sanitizers/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
fuzzers=("$@")
if ((${#fuzzers[@]} == 0)); then
  fuzzers=($(cd "$root/fuzzers/corpus" && ls))
fi
status=0
for fuzzer in "${fuzzers[@]}"; do
  work=$(mktemp -d)
  log="$work/log"
  corpus=("$root/fuzzers/corpus/$fuzzer")
  # The harness's scenario fuzzer also starts from the example and test scenarios, where they live.
  if [[ $fuzzer == harness_scenario_fuzzer ]]; then
    corpus+=("$root/harness/scenarios" "$root/tests/scenarios")
  fi
  # The targets' own output (the harness's scenario errors) is dropped; reports still come.
  if "$dir/bin/$fuzzer" -max_total_time="$seconds" -print_final_stats=1 -timeout=10 \
      -close_fd_mask=3 -artifact_prefix="$work/" "$work" "${corpus[@]}" >"$log" 2>&1; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    echo "$fuzzer: ${runs:-?} executions, ${rate:-?} per second, in ${seconds} s"
  else
    echo "$fuzzer: FAILED (the input that failed and the whole log are kept in $work)"
    tail -60 "$log"
    status=1
    continue
  fi
  rm -rf "$work"
done
exit $status
