# Cross-compiles for 64-bit Arm Linux with Debian's cross toolchain
# (g++-aarch64-linux-gnu) against Debian's arm64 multiarch packages
# (libopencv-dev:arm64 and friends, installed beside the host's own), and runs
# the results - tests, test discovery, the tools the tests start - through
# qemu-aarch64, since binfmt_misc may not be there to do it transparently.
#
#   cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
#
# scripts/cross-arm64 does this inside a Debian 12 root that has those packages.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# Multiarch: arm64 libraries and their CMake package files live under
# /usr/lib/aarch64-linux-gnu, so find_package looks there and not in the
# host's /usr/lib/x86_64-linux-gnu.
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# No -L: the arm64 loader then finds the multiarch libc in
# /usr/lib/aarch64-linux-gnu, the one the programs were linked against. Pointing
# -L at /usr/aarch64-linux-gnu would pair that tree's loader with the multiarch
# libc, and every program that starts a thread would hang.
find_program(HDSML_QEMU_AARCH64 qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${HDSML_QEMU_AARCH64})
