# 32-bit ARM, hard float (Debian armhf): g++-arm-linux-gnueabihf, run under
# qemu-arm. Pointers and size_t are 4 bytes: records are laid out otherwise.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(MIVO_TRIPLET arm-linux-gnueabihf)
set(MIVO_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
