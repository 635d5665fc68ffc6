#!/usr/bin/env bash
# Frozen-interface gate: interface/current.txt holds exactly the `hidl-gen -L hash` lines of every
# package version under interface/ (a line missing, changed or left over fails):
# scripts/check-hidl-hashes.sh [HIDL_GEN]
set -euo pipefail
hidl_gen=${1:-hidl-gen}
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
package=vendor.quarn.hardware.activity_recognition
current=interface/current.txt

generated=""
for dir in interface/*/; do
    version=$(basename "$dir")
    compgen -G "$dir*.hal" >/dev/null || continue
    # With -L hash hidl-gen does not hold the package against current.txt itself.
    generated+=$("$hidl_gen" -L hash -r "$package:interface" -r android.hidl:host_platform/hal \
        "$package@$version")$'\n'
done
recorded=$(grep -v -e '^#' -e '^[[:space:]]*$' "$current" || true)
if ! diff -u --label "$current" --label "hidl-gen -L hash" <(echo "$recorded") \
    <(echo -n "$generated"); then
    echo "check-hidl-hashes: $current differs from the package's hashes (above)" >&2
    exit 1
fi
echo "check-hidl-hashes: $(wc -l <<<"$recorded") hashes match"
