#!/usr/bin/env bash
# The conformance test's device sources (vts/*.cpp) compile against an older googletest:
#   scripts/check-vts-googletest.sh BUILD_DIR [GOOGLETEST_DIR]
# Each source is compiled with -fsyntax-only, with its own command from BUILD_DIR's
# compile_commands.json (so the generated HIDL headers and the host stand-ins are found), and
#   - with GOOGLETEST_DIR (a platform tree's external/googletest): against its
#     googletest/include and googlemock/include instead of the host's googletest;
#   - without: against the host's googletest with the macros that older releases lack removed
#     after googletest is read (NEWER_MACROS below), which shows that every use of them is guarded.
# A probe first shows that the googletest used indeed lacks those macros (and, with
# GOOGLETEST_DIR, that its headers are the ones read).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:?usage: $0 BUILD_DIR [GOOGLETEST_DIR]}
googletest=${2:-}
# googletest macros that the oldest supported platform release does not have.
NEWER_MACROS=(GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST)

[[ -f $build/compile_commands.json ]] || {
    echo "check-vts-googletest: no $build/compile_commands.json" >&2
    exit 1
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

extra=()
if [[ -n $googletest ]]; then
    for d in googletest/include googlemock/include; do
        [[ -d $googletest/$d ]] || {
            echo "check-vts-googletest: $googletest/$d does not exist" >&2
            exit 1
        }
        extra+=(-I "$googletest/$d")
    done
    what="googletest of $googletest"
else
    for m in "${NEWER_MACROS[@]}"; do echo "#undef $m"; done >"$work/without-newer-macros.h"
    extra+=(-include gtest/gtest.h -include "$work/without-newer-macros.h")
    what="the host googletest without ${NEWER_MACROS[*]}"
fi

# compile_command FILE: the compile command of FILE, one argument a line, without output options.
compile_command() {
    /usr/bin/python3 - "$build/compile_commands.json" "$1" <<'EOF'
import json, shlex, sys
entries = [e for e in json.load(open(sys.argv[1])) if e["file"] == sys.argv[2]]
if not entries:
    sys.exit("check-vts-googletest: %s is not in %s" % (sys.argv[2], sys.argv[1]))
args = entries[0].get("arguments") or shlex.split(entries[0]["command"])
out, skip = [], False
for a in args:
    if skip:
        skip = False
    elif a in ("-o", "-MF", "-MT", "-MQ"):
        skip = True
    elif a not in ("-c", "-MD", "-MMD", sys.argv[2]):
        out.append(a)
print("\n".join(out))
EOF
}

failed=0
sources=("$root"/vts/*.cpp)
for src in "${sources[@]}"; do
    mapfile -t cmd < <(compile_command "$src")
    ((${#cmd[@]})) || exit 1
    if [[ $src == "${sources[0]}" ]]; then
        # The probe, with the first source's flags: the macros are absent, and the headers read
        # are the given googletest's.
        {
            echo "#include <gtest/gtest.h>"
            for m in "${NEWER_MACROS[@]}"; do
                printf '#ifdef %s\n#error "%s is still defined"\n#endif\n' "$m" "$m"
            done
        } >"$work/probe.cpp"
        (cd "$build" && "${cmd[@]}" "${extra[@]}" -E -M "$work/probe.cpp") >"$work/probe.d" || {
            echo "check-vts-googletest: the probe does not compile against $what" >&2
            exit 1
        }
        if [[ -n $googletest ]] && ! grep -qF "$googletest/googletest/include/gtest/gtest.h" \
            "$work/probe.d"; then
            echo "check-vts-googletest: gtest/gtest.h is not read from $googletest" >&2
            exit 1
        fi
    fi
    if (cd "$build" && "${cmd[@]}" "${extra[@]}" -fsyntax-only "$src"); then
        echo "check-vts-googletest: ${src#"$root"/} compiles against $what"
    else
        echo "check-vts-googletest: ${src#"$root"/} does not compile against $what" >&2
        failed=1
    fi
done
exit $failed
