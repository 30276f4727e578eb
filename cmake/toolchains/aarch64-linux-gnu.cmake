# 64-bit ARM (Debian arm64): g++-aarch64-linux-gnu, run under qemu-aarch64.
#   cmake -S . -B build-aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(MIVO_TRIPLET aarch64-linux-gnu)
set(MIVO_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
