# Shared part of the cross toolchain files: the triple's compiler and binutils,
# its Debian sysroot, and qemu-user as the emulator through which CTest (and
# gtest_discover_tests) run every target program.
if(NOT OSTREL_CROSS_TRIPLE OR NOT OSTREL_CROSS_QEMU)
  message(FATAL_ERROR "Set OSTREL_CROSS_TRIPLE and OSTREL_CROSS_QEMU before including OstrelCross.cmake")
endif()

# Without the cross packages, say so first: CMake would otherwise go on and
# report a missing build program instead.
if(NOT OSTREL_CROSS_CPU)
  set(OSTREL_CROSS_CPU ${CMAKE_SYSTEM_PROCESSOR})
endif()
find_program(OSTREL_CROSS_CXX_PROGRAM ${OSTREL_CROSS_TRIPLE}-g++)
if(NOT OSTREL_CROSS_CXX_PROGRAM)
  message(FATAL_ERROR "the ${OSTREL_CROSS_CPU} cross compiler is missing "
                      "(${OSTREL_CROSS_TRIPLE}-g++): run scripts/deps cross")
endif()
find_program(OSTREL_QEMU_PROGRAM ${OSTREL_CROSS_QEMU})
if(NOT OSTREL_QEMU_PROGRAM)
  message(FATAL_ERROR "${OSTREL_CROSS_QEMU}, which runs the ${OSTREL_CROSS_CPU} tests, is missing: "
                      "run scripts/deps cross")
endif()

set(CMAKE_C_COMPILER ${OSTREL_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${OSTREL_CROSS_TRIPLE}-g++)
set(CMAKE_AR ${OSTREL_CROSS_TRIPLE}-ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${OSTREL_CROSS_TRIPLE}-ranlib CACHE FILEPATH "")
set(CMAKE_STRIP ${OSTREL_CROSS_TRIPLE}-strip CACHE FILEPATH "")
set(CMAKE_NM ${OSTREL_CROSS_TRIPLE}-nm CACHE FILEPATH "")

# Debian installs the target's C library and libstdc++ here.
set(OSTREL_CROSS_SYSROOT /usr/${OSTREL_CROSS_TRIPLE})
# A staging tree given with -DCMAKE_FIND_ROOT_PATH=... is searched too.
list(APPEND CMAKE_FIND_ROOT_PATH ${OSTREL_CROSS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# -L makes qemu load the target's dynamic loader and libraries from the
# sysroot; the build tree's own libraries are found through their RPATH.
set(CMAKE_CROSSCOMPILING_EMULATOR ${OSTREL_QEMU_PROGRAM};-L;${OSTREL_CROSS_SYSROOT})
