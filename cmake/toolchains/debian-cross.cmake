# What the toolchain files share: Debian's cross compiler for MIVO_TRIPLET,
# which finds the target's headers and libraries in Debian's multiarch
# places (/usr/<triplet>, /usr/lib/<triplet>, /usr/include), and qemu-user
# with the target's C library (-L /usr/<triplet>) as the emulator through
# which ctest and gtest_discover_tests start the target's programs.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${MIVO_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${MIVO_TRIPLET}-g++)
find_program(MIVO_QEMU_${MIVO_QEMU} ${MIVO_QEMU})
if(NOT MIVO_QEMU_${MIVO_QEMU})
  message(FATAL_ERROR "${MIVO_QEMU} not found: install qemu-user (scripts/cross.sh does)")
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR ${MIVO_QEMU_${MIVO_QEMU}} -L /usr/${MIVO_TRIPLET})
