# 64-bit ARM.
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
voice_cross(aarch64-linux-gnu aarch64 qemu-aarch64)
