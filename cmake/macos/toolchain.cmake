# Compiles for macOS on Linux: for the processor arm64 or x86_64 in MIRT_MACOS_PROCESSOR, with the
# compiler that scripts/cross-macos puts below build/. Only for proof: what is shipped is built on a
# Mac, against its own SDK.
set(MIRT_MACOS_PROCESSOR arm64 CACHE STRING "arm64 or x86_64")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MIRT_MACOS_PROCESSOR)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${MIRT_MACOS_PROCESSOR})
set(CMAKE_OSX_SYSROOT "")
if(MIRT_MACOS_PROCESSOR STREQUAL "arm64")
  set(macos_target aarch64-macos.11.0)
elseif(MIRT_MACOS_PROCESSOR STREQUAL "x86_64")
  set(macos_target x86_64-macos.10.13)
else()
  message(FATAL_ERROR "MIRT_MACOS_PROCESSOR is neither arm64 nor x86_64")
endif()

set(CMAKE_C_COMPILER ${CMAKE_CURRENT_LIST_DIR}/bin/cc)
set(CMAKE_CXX_COMPILER ${CMAKE_CURRENT_LIST_DIR}/bin/c++)
set(CMAKE_AR ${CMAKE_CURRENT_LIST_DIR}/bin/ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${CMAKE_CURRENT_LIST_DIR}/bin/ranlib CACHE FILEPATH "")
# Asked for by CMake, and never run: no shared library is built.
set(CMAKE_INSTALL_NAME_TOOL /bin/true CACHE FILEPATH "")

# The compiler brings every header of the system but this framework's.
set(macos_flags "-target ${macos_target} -F${CMAKE_CURRENT_LIST_DIR}/frameworks")
set(CMAKE_C_FLAGS_INIT ${macos_flags})
set(CMAKE_CXX_FLAGS_INIT ${macos_flags})

# Nothing of the machine's own is linked.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_CURRENT_LIST_DIR}/frameworks)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# A test program cannot list its tests here.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
