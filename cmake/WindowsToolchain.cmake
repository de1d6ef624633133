# SPDX-License-Identifier: Apache-2.0
# Cross-builds for Windows x86-64 with mingw-w64. The Qt and OpenCV prefix is found through
# LUMIVORA_WINDOWS_PREFIX, given on the command line or in the environment.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

if(NOT LUMIVORA_WINDOWS_PREFIX)
    set(LUMIVORA_WINDOWS_PREFIX "$ENV{LUMIVORA_WINDOWS_PREFIX}")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES LUMIVORA_WINDOWS_PREFIX)
if(NOT IS_DIRECTORY "${LUMIVORA_WINDOWS_PREFIX}")
    message(FATAL_ERROR "No Windows prefix at '${LUMIVORA_WINDOWS_PREFIX}': run './dev windows', "
                        "which builds or unpacks it, or set LUMIVORA_WINDOWS_PREFIX.")
endif()

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${LUMIVORA_WINDOWS_PREFIX}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
list(APPEND CMAKE_PREFIX_PATH "${LUMIVORA_WINDOWS_PREFIX}")

set(QT_HOST_PATH /usr CACHE PATH "Qt for the build machine")
set(QT_HOST_PATH_CMAKE_DIR /usr/lib/x86_64-linux-gnu/cmake CACHE PATH "its CMake files")
set(OpenCV_DIR "${LUMIVORA_WINDOWS_PREFIX}/lib/cmake/opencv4" CACHE PATH "OpenCV for Windows")
