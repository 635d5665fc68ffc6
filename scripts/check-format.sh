#!/usr/bin/env bash
# Formatting gate: every C and C++ source tracked by git (build folders aside) is formatted as the
# root .clang-format says. Prints the offending lines and fails otherwise.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
files=()
while IFS= read -r f; do
    [[ $f == build*/* || ! -f $f ]] || files+=("$f")
done < <(git ls-files -- '*.h' '*.cpp' '*.c')
((${#files[@]})) || { echo "check-format: no sources found" >&2; exit 1; }
clang-format --style=file --dry-run --Werror "${files[@]}"
echo "check-format: ${#files[@]} files formatted"
