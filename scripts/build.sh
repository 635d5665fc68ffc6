#!/usr/bin/env bash
# Configures and builds one host build folder: scripts/build.sh DIR [CMAKE ARGS...]
set -euo pipefail
dir=$1
shift
root=$(cd "$(dirname "$0")/.." && pwd)
cmake -S "$root" -B "$dir" -G Ninja "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
