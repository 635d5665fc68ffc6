#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs the harness (default scenario when no
# argument is given).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh" >&2
"$root/scripts/build.sh" "$root/build" >&2
exec "$root/build/bin/ar-harness" "$@"
