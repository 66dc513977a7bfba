# 32-bit PowerPC, big-endian.
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
voice_cross(powerpc-linux-gnu ppc qemu-ppc)
