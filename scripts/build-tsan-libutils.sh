#!/usr/bin/env bash
# Builds the parts of libutils that the HAL, the host stand-ins and the tests use (reference
# counting, vectors) from Debian's own source of the installed android-libutils, with
# ThreadSanitizer, and prints the path of the resulting libutils.so.0. Built once per package,
# compiler and script version into a cache outside the checkout
# (${XDG_CACHE_HOME:-~/.cache}/ar-hal/); the first run adds a deb-src entry for the archive and
# suite the package comes from (root needed) and fetches the source through apt.
set -euo pipefail
read -r src srcversion < <(dpkg-query -W -f='${source:Package} ${source:Version}\n' \
  android-libutils)
recipe=$(sha1sum "$0" | cut -c1-8)  # a changed recipe builds anew
cache=${XDG_CACHE_HOME:-$HOME/.cache}/ar-hal/libutils-tsan
cache=$cache/$srcversion-clang$(clang -dumpversion)-$recipe
lib=$cache/libutils.so.0
if [ -f "$lib" ]; then
  echo "$lib"
  exit 0
fi
start=$(date +%s)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if ! apt-get source --print-uris "$src=$srcversion" >/dev/null 2>&1; then
  # "500 http://deb.debian.org/debian bookworm/main amd64 Packages" under the installed version.
  read -r _ uri suite _ < <(apt-cache policy android-libutils |
    awk '/^ \*\*\* /{getline; print; exit}')
  echo "libutils-tsan: adding deb-src $uri ${suite%%/*} ${suite#*/}" >&2
  printf 'Types: deb-src\nURIs: %s\nSuites: %s\nComponents: %s\n' "$uri" "${suite%%/*}" \
    "${suite#*/}" >/etc/apt/sources.list.d/ar-hal-deb-src.sources
  apt-get update >&2
fi
(cd "$work" && apt-get source --download-only -q "$src=$srcversion" >&2)

# Unpacks only the folders the build reads, with Debian's patches to them (and to whatever else
# those patches touch), instead of the whole 450 MB tree.
cd "$work"
tar -xJf ./*.debian.tar.xz debian/patches
dirs=(system/core/{libutils,include,{base,liblog,libcutils,libbacktrace}/include})
wanted="^($(IFS='|' && echo "${dirs[*]}"))/"
patches=()
files=()
while read -r patch; do
  touched=$(sed -n 's|^+++ b/||p' "debian/patches/$patch" | cut -f1)
  grep -qE "$wanted" <<<"$touched" || continue
  patches+=("$patch")
  mapfile -t -O "${#files[@]}" files < <(grep -vE "$wanted" <<<"$touched")
done < <(grep -v '^#' debian/patches/series)
members=("${dirs[@]/%//*}" "${files[@]}")
tar -xzf ./*.orig.tar.gz --one-top-level=src --strip-components=1 --wildcards "${members[@]/#/*/}"
for patch in "${patches[@]}"; do
  patch -s --no-backup-if-mismatch -d src -p1 <"debian/patches/$patch"
done
core=$work/src/system/core
# The same version and patches as the installed headers.
diff -r "$core/libutils/include/utils" /usr/include/android/utils >&2

# This ThreadSanitizer does not model std::atomic_thread_fence: the acquire fence after the last
# release-decrement of a count is invisible to it, and every object destroyed on another thread
# than the one that last used it would look like a race. Those decrements become acq_rel, the same
# order without the fence.
sed -i 's/fetch_sub(1, std::memory_order_release)/fetch_sub(1, std::memory_order_acq_rel)/' \
  "$core/libutils/RefBase.cpp" "$core/libutils/SharedBuffer.cpp"
strengthened=$(cat "$core"/libutils/{RefBase,SharedBuffer}.cpp |
  grep -c 'fetch_sub(1, std::memory_order_acq_rel)')
if [ "$strengthened" != 3 ]; then
  echo "libutils-tsan: the reference count decrements are not where expected" >&2
  exit 1
fi
flags=(-std=gnu++2a -O2 -g -fPIC -fsanitize=thread -fno-omit-frame-pointer -DNDEBUG -UDEBUG
  -fno-exceptions -fno-strict-aliasing -DLIBUTILS_NATIVE=1 -I"$core/include"
  -I"$core/base/include" -I"$core/liblog/include" -I"$core/libcutils/include"
  -I"$core/libutils/include")
for f in RefBase StrongPointer VectorImpl SharedBuffer; do
  clang++ "${flags[@]}" -c "$core/libutils/$f.cpp" -o "$work/$f.o"
done
android=/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)/android
mkdir -p "$cache"
clang++ -shared -fsanitize=thread -Wl,-soname,libutils.so.0 -o "$lib.tmp" "$work"/*.o \
  -L"$android" -Wl,-rpath,"$android" -llog
mv "$lib.tmp" "$lib"
echo "libutils-tsan: $src $srcversion fetched and built in $(($(date +%s) - start)) s" >&2
echo "$lib"
