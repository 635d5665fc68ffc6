#!/usr/bin/env bash
# Gate: a 32-bit compile of the legacy contract header stops with its one message that the
# contract is 64-bit only, before any of its layout checks (clang++ -m32, with Debian's
# libc6-dev-i386 for the C headers).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
header=$root/legacy/activity_recognition_legacy.h
message=$(sed -n 's/^#error "\(.*\)"$/\1/p' "$header")
[[ -n $message ]] || { echo "check-legacy-32bit: no #error in $header" >&2; exit 1; }
includes=(-I"$root/legacy" -I"$root/host_platform/include")
if out=$(echo '#include "activity_recognition_legacy.h"' |
         clang++ -m32 -fsyntax-only -x c++ "${includes[@]}" - 2>&1); then
    echo "check-legacy-32bit: a 32-bit compile of $header succeeded" >&2
    exit 1
fi
errors=$(grep -c 'error:' <<<"$out" || true)
if [[ $errors != 1 ]] || ! grep -qF "error: \"$message\"" <<<"$out"; then
    echo "check-legacy-32bit: expected the one error \"$message\", got:"$'\n'"$out" >&2
    exit 1
fi
echo "check-legacy-32bit: ok"
