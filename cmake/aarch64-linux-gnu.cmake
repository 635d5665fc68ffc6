# Cross build for 64-bit Arm Linux with Debian's cross compiler and the multiarch (:arm64) builds of
# the platform libraries and test frameworks; test programs run under qemu-user, named here as
# CMake's cross-compiling emulator (CTest and gtest discovery prepend it), so no binfmt handler is
# needed. scripts/run-tests-arm64.sh installs all of it and builds in build-arm64/.
#
# AR_AARCH64_EXTRA_ROOT (optional): a private root of arm64 files that must not be installed on
# the host, today p7zip's 7z.so, which Debian's arm64 libbacktrace (under libutils) needs but which
# only installs for one architecture. The linker finds it through -rpath-link, and qemu looks up
# every guest path under this root first (-L).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Libraries, headers and CMake packages of the target only: Debian's multiarch arm64 builds under
# the host's own root (/usr/lib/aarch64-linux-gnu, through CMAKE_LIBRARY_ARCHITECTURE). Programs
# (hidl-gen, python) are the host's.
set(CMAKE_FIND_ROOT_PATH /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(AR_AARCH64_EXTRA_ROOT "" CACHE PATH "Private root of arm64 files for the linker and qemu")
find_program(AR_QEMU_AARCH64 qemu-aarch64 REQUIRED)
if(AR_AARCH64_EXTRA_ROOT)
  add_link_options("LINKER:-rpath-link,${AR_AARCH64_EXTRA_ROOT}/usr/lib/p7zip")
  set(CMAKE_CROSSCOMPILING_EMULATOR ${AR_QEMU_AARCH64} -L ${AR_AARCH64_EXTRA_ROOT})
else()
  set(CMAKE_CROSSCOMPILING_EMULATOR ${AR_QEMU_AARCH64})
endif()
