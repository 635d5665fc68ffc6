#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds, and runs every gate through CTest (the
# sanitized suites are gates of their own, built in build-asan and build-tsan).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
"$root/scripts/build.sh" "$root/build"
cd "$root/build"
ctest --output-on-failure -j"$(nproc)" "$@"
