# stillora_add_test(NAME SOURCES... LIBRARIES...): one test executable, each suite of which is a test for CTest. A process
# for each single test would take longer to start than most of them run.
include(CTest)
function(stillora_add_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 900)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} project_options GTest::gtest GTest::gmock GTest::gtest_main)
    set(suites ${CMAKE_CURRENT_BINARY_DIR}/${name}-suites.cmake)
    add_custom_command(TARGET ${name} POST_BUILD
        COMMAND ${CMAKE_COMMAND} -D NAME=${name} -D PROGRAM=$<TARGET_FILE:${name}> -D TIMEOUT=${ARG_TIMEOUT}
            -D LIST=${suites} -P ${PROJECT_SOURCE_DIR}/cmake/ListSuites.cmake
        VERBATIM)
    # Where the program was not built, its test fails and says so.
    set(included ${CMAKE_CURRENT_BINARY_DIR}/${name}-tests.cmake)
    file(CONFIGURE OUTPUT ${included} @ONLY CONTENT
        [[include("@suites@" OPTIONAL RESULT_VARIABLE found)
if(NOT found)
    add_test(@name@.was_not_built @name@)
endif()
]])
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${included})
endfunction()
