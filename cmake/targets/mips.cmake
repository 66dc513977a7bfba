# 32-bit MIPS, big-endian.
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
voice_cross(mips-linux-gnu mips qemu-mips)
