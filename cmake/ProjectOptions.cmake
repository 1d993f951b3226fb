# Everything of ours links projectOptions: the language, the warnings and the sanitizers stand here alone.
add_library(projectOptions INTERFACE)
target_compile_features(projectOptions INTERFACE cxx_std_23)
set(CMAKE_CXX_EXTENSIONS OFF)

target_compile_options(projectOptions INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(projectOptions INTERFACE
        -fpch-preprocess                 # lets ccache look into precompiled headers
        # GCC 12 reports both inside its own library's coroutines and containers at -O2.
        -Wno-maybe-uninitialized -Wno-free-nonheap-object)
endif()

if(VELTRY_SANITIZE)
    target_compile_options(projectOptions INTERFACE -fsanitize=${VELTRY_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(projectOptions INTERFACE -fsanitize=${VELTRY_SANITIZE})
    if(VELTRY_SANITIZE MATCHES "undefined")
        target_compile_options(projectOptions INTERFACE -fno-sanitize-recover=undefined)
    endif()
endif()
if(VELTRY_FUZZERS)
    # Coverage for libFuzzer in all code; only the fuzz targets themselves link its main().
    target_compile_options(projectOptions INTERFACE -fsanitize=fuzzer-no-link)
endif()

find_program(CCACHE ccache)
if(CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
endif()
