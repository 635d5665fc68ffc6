#!/usr/bin/env bash
# The device checks refuse what they exist to refuse: each case runs a check on a copy of the tree's
# files with one planted fault and requires it to fail with the fault named.
#   scripts/test-device-checks.sh links VENDOR_LIBRARY_LIST   libhwbinder back in the library
#   scripts/test-device-checks.sh vintf                       a matrix range that stops at 1.0
#   scripts/test-device-checks.sh sepolicy PLATFORM_SEPOLICY  a vendor rule writing system_data_file
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
case=${1:-}
input=${2:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

usage() {
    echo "usage: $0 links LIST | vintf | sepolicy PLATFORM_SEPOLICY_DIR" >&2
    exit 2
}

# expect_refusal PATTERN COMMAND...: COMMAND exits 1 and its output matches PATTERN.
expect_refusal() {
    local pattern=$1 out status=0
    shift
    out=$("$@" 2>&1) || status=$?
    echo "$out"
    if ((status != 1)); then
        echo "test-device-checks: $case: the check exited $status, not 1, on the planted fault" >&2
        exit 1
    fi
    grep -qE -- "$pattern" <<<"$out" || {
        echo "test-device-checks: $case: the check did not name the fault (/$pattern/)" >&2
        exit 1
    }
    echo "test-device-checks: $case: refused as expected"
}

case $case in
links)
    [[ -n $input ]] || usage
    sed 's/^\( *\)"libhidlbase",$/&\n\1"libhwbinder",/' "$root/Android.bp" >"$work/Android.bp"
    expect_refusal 'vendor module vendor\.quarn\.hardware\.activity_recognition@1\.1-impl links libhwbinder,' \
        "$root/scripts/check-blueprints.sh" links "$input" "$work/Android.bp"
    ;;
vintf)
    mkdir -p "$work/sepolicy"
    cp -r "$root/service" "$root/interface" "$work/"
    cp "$root/sepolicy/hwservice_contexts" "$work/sepolicy/"
    sed -i 's|<version>1\.0-1</version>|<version>1.0</version>|' \
        "$work/service/compatibility_matrix_activity_recognition.xml"
    expect_refusal 'compatibility_matrix_activity_recognition\.xml: version 1\.0: does not cover vendor\.quarn\.hardware\.activity_recognition@1\.1' \
        "$root/scripts/check-vintf.py" --root "$work"
    ;;
sepolicy)
    [[ -n $input ]] || usage
    cp -r "$root/sepolicy" "$work/"
    echo "allow hal_activity_recognition_default system_data_file:file write;" \
        >>"$work/sepolicy/hal_activity_recognition_default.te"
    expect_refusal 'neverallow on line [0-9]+ of [^ ]*/public/domain\.te .* violated by allow hal_activity_recognition_default system_data_file:file \{ write \}' \
        "$root/scripts/check-sepolicy.sh" "$input" "$work/sepolicy"
    ;;
*)
    usage
    ;;
esac
