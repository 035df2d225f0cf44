# Settings that every target of the project shares.
option(STILLORA_BUILD_TESTS "Build the tests" ON)
option(STILLORA_BUILD_WINDOW "Build the desktop program" ON)
option(STILLORA_BUILD_BENCH "Build the benchmarks" OFF)
option(STILLORA_WATERMARK "Clients ask for the watermark where the user has not chosen" ON)
option(STILLORA_WARNINGS_ARE_ERRORS "Let no compiler's warning pass" ON)
set(STILLORA_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")
set(STILLORA_WEB_ADDRESS "stillora.app" CACHE STRING "The product's web address, drawn as the watermark's second line")

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # Without the leave it keeps nothing that a precompiled header went into.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
endif()

add_library(project_options INTERFACE)
target_include_directories(project_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(project_options INTERFACE
    -Wall -Wextra -Wpedantic $<$<BOOL:${STILLORA_WARNINGS_ARE_ERRORS}>:-Werror> -Wshadow -Wnon-virtual-dtor
    -Woverloaded-virtual -Wundef -Wvla)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(project_options INTERFACE -Wthread-safety)
endif()
# Files come from strangers: a fault in reading them is to end the process, and is not to be led anywhere.
target_compile_options(project_options INTERFACE -fstack-protector-strong -fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
    target_compile_options(project_options INTERFACE -fcf-protection)
endif()
target_link_options(project_options INTERFACE LINKER:-z,relro LINKER:-z,now)
# It needs the optimiser, and the sanitizers look at the same calls by themselves.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT STILLORA_SANITIZE)
    target_compile_options(project_options INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
if(STILLORA_SANITIZE)
    # With the assertions, which the build types leave out.
    target_compile_options(project_options INTERFACE -fsanitize=${STILLORA_SANITIZE} -fno-omit-frame-pointer -UNDEBUG)
    target_link_options(project_options INTERFACE -fsanitize=${STILLORA_SANITIZE})
    if(STILLORA_SANITIZE MATCHES "undefined")
        target_compile_options(project_options INTERFACE -fno-sanitize-recover=undefined)
    endif()
endif()
find_package(Threads REQUIRED)
# Some libraries ask for it, and a precompiled header serves those alone that are compiled as it was.
target_compile_options(project_options INTERFACE -pthread)
target_link_libraries(project_options INTERFACE Threads::Threads)
