#!/usr/bin/env bash
# Gates of the device build files: scripts/check-blueprints.sh format|sources|links LIST [BP...]
#   format   bpfmt reports no change for any Android.bp of the tree.
#   sources  the library module lists every impl/*.cpp, each package module every .hal of its
#            folder, and neither lists a file that does not exist; the library's cflags are the
#            host build's warning flags and clang's -Wthread-safety, and it leaves ZEL_CLIENT_LIBRARY_PATH undefined (the
#            device loads the client library by its vendor path); every cc_* module of any
#            Android.bp of the tree that uses the legacy layouts (a source that includes the legacy
#            header, directly or through a header of the tree, or a dependency on such a module)
#            declares compile_multilib: "64"; the device package's modules (service and
#            conformance test) list their sources, are 64-bit, and name an init script and
#            manifest fragment that exist.
#   links    every shared_libs entry of a vendor module (vendor, soc_specific or proprietary: true)
#            of the tree's Android.bp files (or of the BP files given) is a library that the
#            platform lets vendor code link, LLNDK, VNDK-SP or VNDK-core in LIST (lines
#            "CATEGORY: libname.so", the platform's VNDK list of its API level), or a module of
#            this tree.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
package=vendor.quarn.hardware.activity_recognition
library=$package@1.1-impl

# list_prop FILE MODULE PROP: the strings of list property PROP of the module named MODULE.
list_prop() {
    awk -v want="$2" -v prop="$3" '
        /^[a-z_]+ *\{/ { name = ""; n = 0; inlist = 0 }
        !inlist && match($0, "^    " prop ": *\\[") {
            inlist = 1; rest = substr($0, RSTART + RLENGTH)
        }
        !inlist && match($0, /^    name: *"[^"]*"/) {
            name = $0; sub(/^    name: *"/, "", name); sub(/".*/, "", name)
        }
        inlist {
            if (rest == "") rest = $0
            while (match(rest, /"[^"]*"/)) {
                items[++n] = substr(rest, RSTART + 1, RLENGTH - 2); rest = substr(rest, RSTART + RLENGTH)
            }
            if (index($0, "]")) inlist = 0
            rest = ""
        }
        /^\}/ && name == want { for (i = 1; i <= n; i++) print items[i]; found = 1 }
        END { if (!found) { print "no module " want > "/dev/stderr"; exit 1 } }
    ' "$1"
}

# cc_modules FILE: the names of the cc_* modules of FILE.
cc_modules() {
    awk '
        /^[a-z_]+ *\{/ { cc = ($0 ~ /^cc_[a-z_]+ *\{/) }
        cc && match($0, /^    name: *"[^"]*"/) {
            name = $0; sub(/^    name: *"/, "", name); sub(/".*/, "", name); print name
        }
    ' "$1"
}

# string_prop FILE MODULE PROP: the value of string property PROP of the module named MODULE.
string_prop() {
    awk -v want="$2" -v prop="$3" '
        /^[a-z_]+ *\{/ { name = ""; value = "" }
        match($0, /^    name: *"[^"]*"/) {
            name = $0; sub(/^    name: *"/, "", name); sub(/".*/, "", name)
        }
        match($0, "^    " prop ": *\"[^\"]*\"") {
            value = $0; sub("^    " prop ": *\"", "", value); sub(/".*/, "", value)
        }
        /^\}/ && name == want { print value }
    ' "$1"
}

# legacy_users: the sources and headers of the tree that include the legacy contract header,
# directly or through other headers of the tree.
legacy_users() {
    local names=activity_recognition_legacy.h files="" previous alternatives
    while :; do
        previous=$files
        alternatives=$(sed 's/\./\\./g' <<<"$names" | paste -sd'|')
        files=$(git grep --untracked -lE \
            "^#[[:space:]]*include[[:space:]]*[<\"]([^>\"]*/)?($alternatives)[>\"]" \
            -- '*.h' '*.hpp' '*.c' '*.cc' '*.cpp' | sort -u) || true
        [[ $files != "$previous" ]] || break
        names=$({ echo activity_recognition_legacy.h; xargs -rn1 basename <<<"$files"; } | sort -u)
    done
    echo "$files"
}

# check_multilib: every cc_* module that uses the legacy layouts is 64-bit only.
check_multilib() {
    local users bp dir name src srcs path dep changed
    local -A file_of deps uses
    users=$(legacy_users)
    shopt -s nullglob globstar
    while read -r bp; do
        [[ -f $bp ]] || continue
        dir=$(dirname "$bp")
        for name in $(cc_modules "$bp"); do
            file_of[$name]=$bp
            deps[$name]=$(for p in shared_libs static_libs whole_static_libs header_libs required
                          do list_prop "$bp" "$name" "$p"; done)
            mapfile -t srcs < <(list_prop "$bp" "$name" srcs)
            for src in "${srcs[@]}"; do
                for path in $dir/$src; do # Soong's globs too
                    grep -qxF "${path#./}" <<<"$users" && uses[$name]=1
                done
            done
        done
    done < <(git ls-files --cached --others --exclude-standard -- 'Android.bp' '*/Android.bp')
    changed=1
    while ((changed)); do
        changed=0
        for name in "${!deps[@]}"; do
            [[ -z ${uses[$name]:-} ]] || continue
            for dep in ${deps[$name]}; do
                if [[ -n ${uses[$dep]:-} ]]; then
                    uses[$name]=1
                    changed=1
                fi
            done
        done
    done
    for name in "${!uses[@]}"; do
        [[ $(string_prop "${file_of[$name]}" "$name" compile_multilib) == 64 ]] ||
            fail "$name (${file_of[$name]}) uses the 64-bit legacy layouts (itself or through" \
                'a dependency): it must declare compile_multilib: "64"'
    done
}

failed=0
fail() {
    echo "check-blueprints: $*" >&2
    failed=1
}

# compare WHAT LISTED EXPECTED: both newline-separated; reports either side's extras.
compare() {
    local missing extra
    missing=$(comm -13 <(sort <<<"$2") <(sort <<<"$3"))
    extra=$(comm -23 <(sort <<<"$2") <(sort <<<"$3"))
    [[ -z $missing ]] || fail "$1 lacks:" $missing
    [[ -z $extra ]] || fail "$1 lists files that do not exist:" $extra
}

# device_module DIR MODULE: the module of DIR/Android.bp lists exactly the .cpp files of DIR
# itself (host-only sources live in subfolders), is 64-bit only, and every init script and
# manifest fragment it names exists.
device_module() {
    local dir=$1 module=$2 listed f
    if [[ ! -f $dir/Android.bp ]]; then
        fail "$dir/Android.bp does not exist"
        return
    fi
    listed=$(list_prop "$dir/Android.bp" "$module" srcs | sed "s|^|$dir/|")
    compare "$module srcs" "$listed" "$(ls "$dir"/*.cpp)"
    [[ $(string_prop "$dir/Android.bp" "$module" compile_multilib) == 64 ]] ||
        fail "$module is not 64-bit only (compile_multilib: \"64\")"
    for f in $(list_prop "$dir/Android.bp" "$module" init_rc) \
        $(list_prop "$dir/Android.bp" "$module" vintf_fragments); do
        [[ -f $dir/$f ]] || fail "$module names $dir/$f, which does not exist"
    done
}

# vendor_links FILE: "module library" for each shared_libs entry, at any depth, of the vendor
# modules of FILE.
vendor_links() {
    awk '
        /^[a-z_]+ *\{/ { name = ""; vendor = 0; n = 0; inlist = 0 }
        match($0, /^    name: *"[^"]*"/) {
            name = $0; sub(/^    name: *"/, "", name); sub(/".*/, "", name)
        }
        /^    (vendor|soc_specific|proprietary): *true/ { vendor = 1 }
        !inlist && match($0, /^ +shared_libs: *\[/) { inlist = 1; rest = substr($0, RSTART + RLENGTH) }
        inlist {
            if (rest == "") rest = $0
            while (match(rest, /"[^"]*"/)) {
                libs[++n] = substr(rest, RSTART + 1, RLENGTH - 2); rest = substr(rest, RSTART + RLENGTH)
            }
            if (index($0, "]")) inlist = 0
            rest = ""
        }
        /^\}/ && vendor { for (i = 1; i <= n; i++) print name, libs[i] }
    ' "$1"
}

# tree_modules: the names of every module of the tree's Android.bp files.
tree_modules() {
    local bp
    git ls-files --cached --others --exclude-standard -- 'Android.bp' '*/Android.bp' |
        while read -r bp; do
            [[ -f $bp ]] && sed -n 's/^    name: *"\([^"]*\)".*/\1/p' "$bp"
        done
}

# check_links LIST [BP...]: vendor modules link only what LIST allows them or modules of the tree.
check_links() {
    local list=$1 bp module lib allowed ours
    shift
    [[ -f $list ]] || { fail "no platform library list at $list"; return; }
    allowed=$(sed -n 's/^\(LLNDK\|VNDK-SP\|VNDK-core\): *\([^ ]*\)\.so *$/\2/p' "$list" | sort -u)
    [[ -n $allowed ]] || { fail "$list lists no LLNDK, VNDK-SP or VNDK-core library"; return; }
    ours=$(tree_modules | sort -u)
    (($#)) || mapfile -t argv < <(git ls-files --cached --others --exclude-standard -- \
        'Android.bp' '*/Android.bp')
    for bp in "${@:-${argv[@]}}"; do
        [[ -f $bp ]] || continue
        while read -r module lib; do
            grep -qxF "$lib" <<<"$allowed" || grep -qxF "$lib" <<<"$ours" ||
                fail "$bp: vendor module $module links $lib, which is neither LLNDK, VNDK-SP" \
                    "nor VNDK-core in $list nor a module of this tree"
        done < <(vendor_links "$bp")
    done
}

case ${1:-} in
links)
    [[ $# -ge 2 ]] || { echo "usage: $0 links LIST [BP...]" >&2; exit 2; }
    check_links "${@:2}"
    ;;
format)
    mapfile -t bps < <(git ls-files --cached --others --exclude-standard -- 'Android.bp' '*/Android.bp')
    ((${#bps[@]})) || { fail "no Android.bp found"; exit 1; }
    for bp in "${bps[@]}"; do
        [[ -f $bp ]] || continue
        if ! out=$(bpfmt -d "$bp" 2>&1); then
            fail "$bp does not parse: $out"
            continue
        fi
        [[ -z $out ]] || fail "$bp is not as bpfmt formats it:"$'\n'"$out"
    done
    ;;
sources)
    listed=$(list_prop Android.bp "$library" srcs)
    compare "$library srcs" "$listed" "$(ls impl/*.cpp)"

    shopt -s nullglob
    for dir in interface/*/; do
        dir=${dir%/}
        hals=("$dir"/*.hal)
        ((${#hals[@]})) || continue
        version=${dir#interface/}
        if [[ ! -f $dir/Android.bp ]]; then
            fail "$dir has .hal files but no Android.bp"
            continue
        fi
        listed=$(list_prop "$dir/Android.bp" "$package@$version" srcs | sed "s|^|$dir/|")
        compare "$package@$version srcs" "$listed" "$(printf '%s\n' "${hals[@]}")"
    done

    host_flags=$(sed -n 's/^add_compile_options(\(-W[^)]*\))$/\1/p' CMakeLists.txt | tr ' ' '\n')
    [[ -n $host_flags ]] || fail "no warning flags found in CMakeLists.txt"
    # The device compiler is clang: it checks the lock annotations, as the thread_safety gate does.
    host_flags+=$'\n-Wthread-safety'
    [[ $(list_prop Android.bp "$library" cflags) == "$host_flags" ]] ||
        fail "$library cflags differ from the host build's:" $host_flags
    if grep -q -- '-DZEL_CLIENT_LIBRARY_PATH' Android.bp; then
        fail "the device build must not define ZEL_CLIENT_LIBRARY_PATH"
    fi

    # ---- Device package: the service (with its init script and manifest fragment, which the
    # library no longer carries) and the conformance test.
    service=$package@1.1-service
    device_module service "$service"
    rc=$(list_prop service/Android.bp "$service" init_rc)
    [[ -n $rc ]] || fail "$service has no init_rc"
    for version in 1.0 1.1; do
        grep -qx "    interface $package@$version::IActivityRecognition default" "service/$rc" ||
            fail "service/$rc declares no $package@$version::IActivityRecognition/default"
    done
    [[ -n $(list_prop service/Android.bp "$service" vintf_fragments) ]] ||
        fail "$service has no vintf_fragments"
    [[ -z $(list_prop Android.bp "$library" vintf_fragments) ]] ||
        fail "$library carries vintf_fragments: they belong to $service"
    device_module vts VtsHalActivityRecognitionV1_1TargetTest
    # ---- end of the device package
    check_multilib
    ;;
*)
    echo "usage: $0 format|sources|links LIST [BP...]" >&2
    exit 2
    ;;
esac
((failed == 0)) || exit 1
echo "check-blueprints: $1 ok"
