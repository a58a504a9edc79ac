# Builds with zig's C and C++ compiler, for Linux (musl) and for macOS. Scripts/release passes
#
#   CORVANE_TARGET   what to build for: x86_64-linux-musl, aarch64-macos ...
#   CORVANE_CROSS    the folder with that target's tools (wrappers around zig) and libraries

set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CORVANE_TARGET CORVANE_CROSS)

if(NOT CORVANE_TARGET MATCHES "^(x86_64|aarch64)-(linux-musl|macos)$")
  message(FATAL_ERROR "CORVANE_TARGET is \"${CORVANE_TARGET}\"")
endif()
set(CMAKE_SYSTEM_PROCESSOR ${CMAKE_MATCH_1})
if(CMAKE_MATCH_2 STREQUAL "macos")
  set(CMAKE_SYSTEM_NAME Darwin)
  set(CMAKE_OSX_SYSROOT "")  # zig brings the headers and what to link with
  set(CMAKE_INSTALL_NAME_TOOL /bin/true)
else()
  set(CMAKE_SYSTEM_NAME Linux)
endif()

set(CMAKE_C_COMPILER ${CORVANE_CROSS}/tools/cc)
set(CMAKE_CXX_COMPILER ${CORVANE_CROSS}/tools/c++)
set(CMAKE_AR ${CORVANE_CROSS}/tools/ar)
set(CMAKE_RANLIB ${CORVANE_CROSS}/tools/ranlib)

# Libraries, headers and packages of the target only, programs of this machine only.
set(CMAKE_FIND_ROOT_PATH ${CORVANE_CROSS}/libraries)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${CORVANE_CROSS}/libraries/lib/pkgconfig)
