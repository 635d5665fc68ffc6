#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds, and runs every gate through CTest (the
# sanitized suites and the fuzzers are gates of their own, built in build/asan, build/tsan and
# build/fuzz).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
"$root/scripts/build.sh" "$root/build"
cd "$root/build"
ctest --output-on-failure -j"$(nproc)" "$@"
