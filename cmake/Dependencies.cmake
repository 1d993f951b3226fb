# Debian's packages; nothing is vendored and nothing is downloaded. script/setup installs them.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)

# From archives where there are some: loading them as shared libraries is a fifth of a supervisor's start, and every run
# has a supervisor.
set(sharedSuffixes ${CMAKE_FIND_LIBRARY_SUFFIXES})
list(PREPEND CMAKE_FIND_LIBRARY_SUFFIXES ${CMAKE_STATIC_LIBRARY_SUFFIX})
find_package(SQLite3 REQUIRED)
pkg_check_modules(utf8proc REQUIRED IMPORTED_TARGET libutf8proc)
pkg_check_modules(uuid REQUIRED IMPORTED_TARGET uuid)
set(CMAKE_FIND_LIBRARY_SUFFIXES ${sharedSuffixes})
pkg_check_modules(icu REQUIRED IMPORTED_TARGET icu-i18n icu-uc)

find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(asio INTERFACE)
target_include_directories(asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
# Asio 1.22 allocates by what the headers before it happen to define, so two sources could differ in one inline function.
target_compile_definitions(asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED ASIO_HAS_STD_ALIGNED_ALLOC)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # Asio 1.22 looks for the coroutines of an older clang.
    target_compile_definitions(asio INTERFACE ASIO_HAS_CO_AWAIT ASIO_HAS_STD_COROUTINE)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 mistakes the frame allocator of Asio's coroutines for a mismatched pair when it inlines one half.
    target_compile_options(asio INTERFACE -Wno-mismatched-new-delete)
endif()
target_link_libraries(asio INTERFACE Threads::Threads)

# Its headers alone: the library is loaded at the first request.
find_path(CURL_INCLUDE_DIR curl/curl.h REQUIRED)
add_library(curlHeaders INTERFACE)
target_include_directories(curlHeaders SYSTEM INTERFACE ${CURL_INCLUDE_DIR})
target_link_libraries(curlHeaders INTERFACE ${CMAKE_DL_LIBS})

find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp REQUIRED)
add_library(cli11 INTERFACE)
target_include_directories(cli11 SYSTEM INTERFACE ${CLI11_INCLUDE_DIR})

if(VELTRY_TESTS)
    find_package(GTest REQUIRED)
    pkg_check_modules(httplib REQUIRED IMPORTED_TARGET cpp-httplib) # its flags set its ABI
    pkg_check_modules(libcrypto REQUIRED IMPORTED_TARGET libcrypto) # called from its newer headers
endif()
if(VELTRY_BENCHES)
    find_package(benchmark REQUIRED)
    find_package(simdjson REQUIRED) # what the reading of telemetry is measured against
endif()
