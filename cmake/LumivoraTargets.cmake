# SPDX-License-Identifier: Apache-2.0
# The few forms that our targets take.

set(CMAKE_AUTOMOC ON)

# lumivora_library(NAME SOURCES ... [WINDOWS ...] [LINUX ...] [LINK ...] [LINK_WINDOWS ...] [LINK_LINUX ...])
# A static library of ours; platform variants stand side by side and are picked here.
function(lumivora_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;WINDOWS;LINUX;LINK;LINK_WINDOWS;LINK_LINUX" ${ARGN})
    if(WIN32)
        set(platform_sources ${ARG_WINDOWS})
        set(platform_links ${ARG_LINK_WINDOWS})
    else()
        set(platform_sources ${ARG_LINUX})
        set(platform_links ${ARG_LINK_LINUX})
    endif()
    add_library(${name} STATIC ${ARG_SOURCES} ${platform_sources})
    target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
    target_link_libraries(${name} PUBLIC ${ARG_LINK} ${platform_links} PRIVATE lumivora_compiler)
endfunction()

# lumivora_executable(NAME SOURCES ... [LINK ...])
function(lumivora_executable name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
    target_link_libraries(${name} PRIVATE ${ARG_LINK} lumivora_compiler)
endfunction()

# What the sanitizer builds build.
add_custom_target(unit_tests)

# lumivora_test(NAME SOURCES ... [LINK ...] [LABELS ...] [TIMEOUT seconds] [NO_MAIN])
# A GoogleTest executable, one ctest entry per test case. LABELS: unit (the default) or integration.
# The main is ours (tests/support/main.cpp): it makes a QCoreApplication and captures the log.
function(lumivora_test name)
    cmake_parse_arguments(ARG "NO_MAIN" "TIMEOUT" "SOURCES;LINK;LABELS" ${ARGN})
    if(NOT ARG_LABELS)
        set(ARG_LABELS unit)
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 60)
    endif()
    lumivora_executable(${name} SOURCES ${ARG_SOURCES} LINK ${ARG_LINK} GTest::gmock)
    if(NOT ARG_NO_MAIN)
        target_link_libraries(${name} PRIVATE test_support)
    endif()
    if("unit" IN_LIST ARG_LABELS)
        add_dependencies(unit_tests ${name})
    endif()
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT ${ARG_TIMEOUT})
endfunction()
