# 32-bit ARM with hardware floating point.
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
voice_cross(arm-linux-gnueabihf arm qemu-arm)
