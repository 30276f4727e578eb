# 64-bit big-endian (Debian s390x): g++-s390x-linux-gnu, run under
# qemu-s390x. Bytes of a word and bit-fields in a byte go the other way.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(MIVO_TRIPLET s390x-linux-gnu)
set(MIVO_QEMU qemu-s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
