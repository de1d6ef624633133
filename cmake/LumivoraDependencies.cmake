# SPDX-License-Identifier: Apache-2.0
# The libraries that the project calls, each as an imported target.

find_package(Qt6 6.8 REQUIRED COMPONENTS Core Gui Widgets Test)
find_package(Threads REQUIRED)

# Debian's own OpenCV configuration comes with every module there is; naming the ones in use keeps
# the build environment small. The Windows prefix holds just those, with a configuration.
if(WIN32)
    find_package(OpenCV 4 REQUIRED COMPONENTS core imgproc)
    add_library(lumivora_opencv INTERFACE)
    target_include_directories(lumivora_opencv SYSTEM INTERFACE ${OpenCV_INCLUDE_DIRS})
    target_link_libraries(lumivora_opencv INTERFACE ${OpenCV_LIBS})
else()
    find_path(LUMIVORA_OPENCV_INCLUDE opencv2/core.hpp PATH_SUFFIXES opencv4 REQUIRED)
    find_library(LUMIVORA_OPENCV_CORE opencv_core REQUIRED)
    find_library(LUMIVORA_OPENCV_IMGPROC opencv_imgproc REQUIRED)
    add_library(lumivora_opencv INTERFACE)
    target_include_directories(lumivora_opencv SYSTEM INTERFACE "${LUMIVORA_OPENCV_INCLUDE}")
    target_link_libraries(lumivora_opencv INTERFACE
        "${LUMIVORA_OPENCV_CORE}" "${LUMIVORA_OPENCV_IMGPROC}")

    find_package(PkgConfig REQUIRED)
    pkg_check_modules(PIPEWIRE REQUIRED IMPORTED_TARGET libpipewire-0.3>=1.2)
    pkg_check_modules(GSTREAMER REQUIRED IMPORTED_TARGET
        gstreamer-1.0>=1.22 gstreamer-app-1.0 gstreamer-video-1.0)
endif()

if(BUILD_TESTING OR NOT DEFINED BUILD_TESTING)
    # From source, so that the sanitizers and the Windows compiler see the same code.
    find_path(LUMIVORA_GOOGLETEST_SOURCE googlemock/CMakeLists.txt
        PATHS /usr/src/googletest NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    set(INSTALL_GTEST OFF)
    set(BUILD_GMOCK ON)
    add_subdirectory("${LUMIVORA_GOOGLETEST_SOURCE}" googletest EXCLUDE_FROM_ALL SYSTEM)
endif()
if(LUMIVORA_BENCHMARKS AND NOT WIN32)
    find_package(benchmark REQUIRED)
endif()
