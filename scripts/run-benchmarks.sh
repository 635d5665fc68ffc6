#!/usr/bin/env bash
# Runs every benchmark configuration in a process of its own (the HAL's process-wide state only
# grows) and prints the fan-out figures with their ratio to the floor, and the growth of request
# merging. scripts/run-benchmarks.sh [BUILD_DIR] [extra benchmark args, e.g. --log=stderr]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
shift || true
bin="$build/bin/ar_fanout_benchmark"
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
i=0
while read -r name; do
  i=$((i + 1))
  "$bin" --benchmark_filter="^${name}\$" --benchmark_format=json "$@" >"$out/$i.json"
done < <("$bin" --benchmark_list_tests)
python3 "$root/benchmarks/report.py" "$out"/*.json
