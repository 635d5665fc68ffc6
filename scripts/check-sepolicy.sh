#!/usr/bin/env bash
# Compiles the HAL's vendor SELinux policy with a platform policy tree, as the platform build does:
#   scripts/check-sepolicy.sh PLATFORM_SEPOLICY_DIR [POLICY_DIR...]
# PLATFORM_SEPOLICY_DIR is a platform tree's system/sepolicy; the POLICY_DIRs (default: this
# tree's sepolicy/) are vendor policy folders in BOARD_VENDOR_SEPOLICY_DIRS order, so a device
# passes its own folders after this one. Checks, each failure with the compiler's message:
#   1. the whole policy (platform public, private and vendor, then the POLICY_DIRs) compiles with
#      checkpolicy, which checks every neverallow;
#   2. its CIL form, with the platform's CIL workarounds, passes secilc's neverallow check too;
#   3. the vendor part compiles against the platform's public policy and required mask only, so
#      that a vendor rule naming a private platform type fails;
#   4. each file_contexts is valid against the compiled policy;
#   5. each hwservice_contexts line names PACKAGE::IInterface once (also among the platform's)
#      with a type of the policy that has the attribute hwservice_manager_type.
# Needs m4, checkpolicy, secilc, selinux-utils and python3-setools. Exit status 0 when all hold.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
platform=${1:?usage: $0 PLATFORM_SEPOLICY_DIR [POLICY_DIR...]}
shift
policy_dirs=("$@")
((${#policy_dirs[@]})) || policy_dirs=("$root/sepolicy")
version=30

for d in public private vendor reqd_mask; do
    [[ -d $platform/$d ]] || {
        echo "check-sepolicy: $platform/$d does not exist (give a platform tree's system/sepolicy)" >&2
        exit 2
    }
done
for tool in m4 checkpolicy secilc sefcontext_compile; do
    command -v "$tool" >/dev/null || {
        echo "check-sepolicy: $tool is missing (Debian: m4 checkpolicy secilc selinux-utils)" >&2
        exit 2
    }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

failed=0
fail() {
    echo "check-sepolicy: $*" >&2
    failed=1
}

# ---- Policy sources, kind by kind and, within a kind, folder by folder, each folder's matches
# in sorted order; m4 with the definitions of a user build of a full-Treble 64-bit Arm device.
kinds=(security_classes initial_sids access_vectors global_macros neverallow_macros mls_macros
    mls_decl mls policy_capabilities te_macros attributes ioctl_defines ioctl_macros '*.te'
    roles_decl roles users initial_sid_contexts fs_use genfs_contexts port_contexts)

# policy_conf OUT DIR...: the m4 output of the policy files of the folders.
policy_conf() {
    local out=$1 kind dir files=()
    shift
    for kind in "${kinds[@]}"; do
        for dir in "$@"; do
            mapfile -t -O "${#files[@]}" files < <(
                shopt -s nullglob
                for f in "$dir"/$kind; do [[ -f $f ]] && echo "$f"; done | LC_ALL=C sort
            )
        done
    done
    m4 --fatal-warnings -D mls_num_sens=1 -D mls_num_cats=1024 -D target_build_variant=user \
        -D target_with_dexpreopt=true -D target_arch=arm64 -D target_with_asan=false \
        -D target_with_native_coverage=false -D target_full_treble=true \
        -D target_compatible_property=true -D target_treble_sysprop_neverallow=true \
        -D target_exclude_build_test= -D target_requires_insecure_execmem_for_swiftshader=false \
        -s "${files[@]}" >"$out"
}

# run WHAT COMMAND...: runs the command, its messages indented under WHAT when it fails.
run() {
    local what=$1 out
    shift
    if ! out=$("$@" 2>&1); then
        fail "$what failed:"
        sed 's/^/    /' <<<"$out" >&2
        return 1
    fi
}

# ---- 1 and 2: the whole policy, every neverallow.
policy_conf "$work/whole.conf" "$platform/public" "$platform/private" "$platform/vendor" \
    "${policy_dirs[@]}"
if run "the whole policy (checkpolicy)" checkpolicy -M -c $version -o "$work/policy" \
    "$work/whole.conf"; then
    run "the whole policy in CIL (checkpolicy -C)" checkpolicy -M -C -c $version \
        -o "$work/whole.cil" "$work/whole.conf" &&
        cat "$platform/private/technical_debt.cil" >>"$work/whole.cil" &&
        run "the whole policy in CIL (secilc)" secilc -m -M true -G -c $version \
            "$work/whole.cil" -o /dev/null -f /dev/null
fi

# ---- 3: the vendor part against the public platform policy only.
policy_conf "$work/vendor.conf" "$platform/public" "$platform/reqd_mask" "$platform/vendor" \
    "${policy_dirs[@]}"
run "the vendor policy against the public platform policy (checkpolicy -C)" \
    checkpolicy -C -M -c $version -o "$work/vendor.cil" "$work/vendor.conf" || true

# ---- 4 and 5: the contexts files, against the compiled policy.
if [[ -f $work/policy ]]; then
    for dir in "${policy_dirs[@]}"; do
        [[ ! -f $dir/file_contexts ]] ||
            run "$dir/file_contexts" sefcontext_compile -p "$work/policy" -o "$work/fc.bin" \
                "$dir/file_contexts" || true
    done
    hwservice_files=()
    for dir in "${policy_dirs[@]}"; do
        [[ ! -f $dir/hwservice_contexts ]] || hwservice_files+=("$dir/hwservice_contexts")
    done
    if ((${#hwservice_files[@]})); then
        run "hwservice_contexts" /usr/bin/python3 - "$work/policy" \
            "$platform/private/hwservice_contexts" "${hwservice_files[@]}" <<'EOF' || true
import re, sys
import setools

policy = setools.SELinuxPolicy(sys.argv[1])
name_form = re.compile(r"[a-z][a-z0-9_]*(\.[a-z][a-z0-9_]*)+::I[A-Za-z0-9_]+$")
context_form = re.compile(r"u:object_r:([A-Za-z0-9_]+):s0$")
seen, errors = {}, []
for path in sys.argv[2:]:
    for number, line in enumerate(open(path), 1):
        words = line.split()
        if not words or words[0].startswith("#"):
            continue
        where = "%s:%d" % (path, number)
        if words[0] in seen:
            errors.append("%s: %s is also labelled at %s" % (where, words[0], seen[words[0]]))
        seen[words[0]] = where
        if path == sys.argv[2]:
            continue  # the platform's own lines are only known, not checked
        if len(words) != 2:
            errors.append("%s: expected NAME CONTEXT, got %r" % (where, line.strip()))
            continue
        if not name_form.match(words[0]):
            errors.append("%s: %s is not PACKAGE::IInterface" % (where, words[0]))
        match = context_form.match(words[1])
        if not match:
            errors.append("%s: %s is not u:object_r:TYPE:s0" % (where, words[1]))
            continue
        try:
            kind = policy.lookup_type(match.group(1))
        except Exception:
            errors.append("%s: type %s is not in the policy" % (where, match.group(1)))
            continue
        if "hwservice_manager_type" not in {str(a) for a in kind.attributes()}:
            errors.append("%s: type %s lacks the attribute hwservice_manager_type" % (where, kind))
for error in errors:
    print(error)
sys.exit(1 if errors else 0)
EOF
    fi
fi

((failed == 0)) || exit 1
echo "check-sepolicy: ${policy_dirs[*]} ok with $platform"
