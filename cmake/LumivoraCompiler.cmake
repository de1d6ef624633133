# SPDX-License-Identifier: Apache-2.0
# How every target of ours is compiled.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

find_program(LUMIVORA_CCACHE ccache)
mark_as_advanced(LUMIVORA_CCACHE)
if(LUMIVORA_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${LUMIVORA_CCACHE}")
endif()

add_library(lumivora_compiler INTERFACE)
target_compile_options(lumivora_compiler INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Woverloaded-virtual
    -Wnon-virtual-dtor
    -ffp-contract=off # results are promised exactly: no fused multiply-add behind our back
    -fvisibility=hidden)
if(LUMIVORA_WERROR)
    target_compile_options(lumivora_compiler INTERFACE -Werror)
endif()
target_compile_definitions(lumivora_compiler INTERFACE
    QT_NO_KEYWORDS QT_NO_CAST_TO_ASCII QT_NO_FOREACH
    $<$<PLATFORM_ID:Windows>:UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00>)

if(LUMIVORA_SANITIZE)
    add_compile_options("-fsanitize=${LUMIVORA_SANITIZE}" -fno-omit-frame-pointer -O1
                        -fno-sanitize-recover=all)
    add_link_options("-fsanitize=${LUMIVORA_SANITIZE}")
    if(LUMIVORA_SANITIZE MATCHES "thread")
        # Fences order words that other processes read; nothing in this process races on them.
        add_compile_options(-Wno-tsan)
    endif()
endif()
