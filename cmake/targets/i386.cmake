# 32-bit x86.
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
voice_cross(i686-linux-gnu i686 qemu-i386)
