#!/usr/bin/env bash
# The suite on 64-bit Arm: installs the cross toolchain, qemu-user and the arm64 builds of the
# libraries when any is missing, cross-builds the product and the suite in build-arm64/ (gcc, with
# the toolchain file cmake/aarch64-linux-gnu.cmake) and runs every CTest test there under qemu.
# The hygiene gates, sanitized suites and fuzzers run in the native build only. Run as root;
# arguments go to ctest. AR_BUILD_DIR overrides the folder.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${AR_BUILD_DIR:-"$root/build-arm64"}

"$root/scripts/setup.sh" crossbuild-essential-arm64 qemu-user \
  android-libutils-dev:arm64 android-liblog-dev:arm64 android-libbase-dev:arm64 \
  libgtest-dev:arm64 libgmock-dev:arm64 libbenchmark-dev:arm64 libedit-dev:arm64

# Debian's arm64 libbacktrace (under libutils) needs p7zip's 7z.so, which installs for one
# architecture only: installing the arm64 package would replace the host's. Its files go into a
# private root instead, for the linker and for qemu.
extra_root=$dir/arm64-root
if [[ ! -f $extra_root/usr/lib/p7zip/7z.so ]]; then
  mkdir -p "$dir/debs" "$extra_root"
  (cd "$dir/debs" && apt-get -o APT::Sandbox::User=root download p7zip-full:arm64)
  dpkg-deb -x "$dir"/debs/p7zip-full_*_arm64.deb "$extra_root"
fi

"$root/scripts/build.sh" "$dir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/aarch64-linux-gnu.cmake" \
  -DAR_AARCH64_EXTRA_ROOT="$extra_root" -DAR_GATES=OFF
cd "$dir"
ctest --output-on-failure -j"$(nproc)" "$@"
