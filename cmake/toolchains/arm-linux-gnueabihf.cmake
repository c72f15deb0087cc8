# 32-bit ARM, hard-float (armhf): the receiver's word size (32-bit pointers and
# time_t) and its unsigned plain char. Uses Debian's cross compiler
# (g++-arm-linux-gnueabihf); test programs run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(OSTREL_CROSS_TRIPLE arm-linux-gnueabihf)
set(OSTREL_CROSS_QEMU qemu-arm)
set(OSTREL_CROSS_CPU ARM)
include(${CMAKE_CURRENT_LIST_DIR}/OstrelCross.cmake)

# GCC notes that the passing of some 64-bit members changed in GCC 7.1 (an
# ABI detail between objects built by compilers on either side of 7.1). Every
# object here is built by one compiler, so the notes only bury real warnings.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
