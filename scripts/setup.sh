#!/usr/bin/env bash
# Installs the Debian packages that the host build needs, and those given as arguments, when any is
# missing; a NAME:ARCH argument adds ARCH to dpkg's architectures first. Run as root.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache clang libclang-rt-14-dev clang-format clang-tidy
  libgtest-dev libgmock-dev libbenchmark-dev python3 libc6-dev-i386
  android-libutils-dev android-liblog-dev android-libbase-dev hidl-gen blueprint-tools
  python3-jsonschema libedit-dev tmux
  "$@"
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  for p in "${missing[@]}"; do
    arch=${p#*:}
    [[ $p == *:* && $arch != "$(dpkg --print-architecture)" ]] || continue
    dpkg --print-foreign-architectures | grep -qx "$arch" || dpkg --add-architecture "$arch"
  done
  apt-get update
  DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
fi
