#!/usr/bin/env bash
# Runs every benchmark configuration in a process of its own (the HAL's process-wide state only
# grows) and prints the fan-out figures with their ratio to the floor, and the growth of request
# merging.
#   scripts/run-benchmarks.sh [BUILD_DIR] [--only=REGEX] [--callgrind] [benchmark args...]
# --only=REGEX runs the configurations whose names match (a case and its floor share a name but
# for "Floor"); --callgrind adds each configuration's instructions per batch under callgrind.
# Further arguments go to the benchmark program (e.g. --benchmark_min_time=0.3, --log=stderr).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
shift || true
only=. callgrind=
while [[ ${1:-} == --only=* || ${1:-} == --callgrind ]]; do
  case $1 in
    --only=*) only=${1#--only=} ;;
    --callgrind) callgrind=1 ;;
  esac
  shift
done
bin="$build/bin/ar_fanout_benchmark"
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
files=()
i=0
while read -r name; do
  [[ ${name/Floor/} =~ $only ]] || continue
  i=$((i + 1))
  "$bin" --benchmark_filter="^${name}\$" --benchmark_format=json "$@" >"$out/$i.json"
  files+=("$out/$i.json")
  if [[ -n $callgrind ]]; then
    valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$out/cg.out" \
      "$bin" --benchmark_filter="^${name}\$" --benchmark_min_time=0.05 >/dev/null 2>"$out/cg.err"
    batches=$(sed -n 's/^batches counted: //p' "$out/cg.err")
    total=$(sed -n 's/^totals: *//p' "$out/cg.out")
    echo "$name $((total / batches))" >>"$out/instructions.ir"
  fi
done < <("$bin" --benchmark_list_tests)
[[ -f $out/instructions.ir ]] && files+=("$out/instructions.ir")
python3 "$root/benchmarks/report.py" "${files[@]}"
