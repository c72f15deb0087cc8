# GoogleTest for the test programs: GTest::gtest, GTest::gtest_main,
# GTest::gmock and GTest::gmock_main.
#
# The installed GoogleTest is used when it suits the target. A cross build
# cannot link the host's, so there (or when OSTREL_GTEST_FROM_SOURCE is set,
# or when none is installed) GoogleTest is built from Debian's sources
# (googletest package, /usr/src/googletest) with the project's compiler.
option(OSTREL_GTEST_FROM_SOURCE "Build GoogleTest from its sources instead of using the installed one" OFF)
set(OSTREL_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources to build when no usable GoogleTest is installed")

if(NOT CMAKE_CROSSCOMPILING AND NOT OSTREL_GTEST_FROM_SOURCE)
  find_package(GTest QUIET)
endif()

if(NOT TARGET GTest::gtest)
  if(NOT EXISTS ${OSTREL_GTEST_SOURCE_DIR}/CMakeLists.txt)
    # The caller leaves its tests out; CTest then fails for want of tests.
    message(STATUS "GoogleTest not found: tests left out (libgtest-dev and libgmock-dev, "
                   "or googletest's sources in OSTREL_GTEST_SOURCE_DIR)")
    return()
  endif()
  message(STATUS "GoogleTest: building from ${OSTREL_GTEST_SOURCE_DIR}")
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  set(gtest_force_shared_crt OFF CACHE BOOL "" FORCE)
  add_subdirectory(${OSTREL_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/_deps/googletest EXCLUDE_FROM_ALL SYSTEM)
  # Recent GoogleTest sources define these aliases themselves.
  foreach(lib gtest gtest_main gmock gmock_main)
    if(NOT TARGET GTest::${lib})
      add_library(GTest::${lib} ALIAS ${lib})
    endif()
  endforeach()
endif()
