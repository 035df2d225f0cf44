# What nearly every source of a library includes is read once for all, which takes a third off the time of a build. It is
# another way to the same headers: each source still includes what it uses, and the builds of clang and of the sanitizers,
# which go without, fail where one does not.
option(STILLORA_PRECOMPILE "Read the headers of the standard library once for all sources" ON)
# clang's tools cannot read what g++ wrote beside the commands of a build.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set(STILLORA_PRECOMPILE OFF)
endif()

# All libraries in a folder and the folders below it that have sources of C++. Programs are compiled with other options.
function(stillora_libraries result folder)
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    set(found "")
    foreach(target IN LISTS targets)
        get_target_property(sources ${target} SOURCES)
        get_target_property(type ${target} TYPE)
        if(sources MATCHES "\\.cpp" AND type MATCHES "LIBRARY")
            list(APPEND found ${target})
        endif()
    endforeach()
    get_property(folders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
    foreach(below IN LISTS folders)
        stillora_libraries(more ${below})
        list(APPEND found ${more})
    endforeach()
    set(${result} ${found} PARENT_SCOPE)
endfunction()

# stillora_precompile(NAME FOLDERS... LIBRARIES... HEADERS...): the sources of all libraries in the folders have the usual
# headers before their first line, and HEADERS, which belong to LIBRARIES.
function(stillora_precompile name)
    if(NOT STILLORA_PRECOMPILE)
        return()
    endif()
    cmake_parse_arguments(ARG "" "" "FOLDERS;LIBRARIES;HEADERS" ${ARGN})
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
    file(CONFIGURE OUTPUT ${source} CONTENT "")
    add_library(${name} OBJECT EXCLUDE_FROM_ALL ${source})
    target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} PkgConfig::FMT project_options)
    set(headers
        algorithm array atomic cerrno charconv chrono cmath cstdint cstdlib cstring filesystem functional limits map memory
        optional set span string string_view system_error thread utility variant vector fmt/format.h ${ARG_HEADERS})
    list(TRANSFORM headers REPLACE "(.+)" "<\\1>")
    target_precompile_headers(${name} PRIVATE ${headers})
    foreach(folder IN LISTS ARG_FOLDERS)
        stillora_libraries(libraries ${folder})
        foreach(library IN LISTS libraries)
            # What has options of its own cannot take what was compiled without.
            get_property(options TARGET ${library} PROPERTY COMPILE_OPTIONS)
            if("${options}" STREQUAL "")
                target_precompile_headers(${library} REUSE_FROM ${name})
            endif()
        endforeach()
    endforeach()
endfunction()
