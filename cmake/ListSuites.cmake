# Writes the suites of a test program to a file that CTest reads. Takes NAME, PROGRAM, TIMEOUT in seconds, and LIST.
execute_process(COMMAND ${PROGRAM} --gtest_list_tests OUTPUT_VARIABLE told COMMAND_ERROR_IS_FATAL ANY)
set(tests "")
# A suite stands at the beginning of its line, its tests behind blanks; what follows "#" says of which type it is.
string(REGEX MATCHALL "(^|\n)[^ \n#]+\\.[^\n]*" suites "${told}")
foreach(line ${suites})
    string(REGEX REPLACE "^\n?([^ \n#]+)\\..*" "\\1" suite "${line}")
    # In brief: what a failing test said is not to be looked for among those that passed.
    string(APPEND tests
        "add_test([=[${NAME}.${suite}]=] [=[${PROGRAM}]=] [=[--gtest_filter=${suite}.*]=] --gtest_brief=1)\n"
        "set_tests_properties([=[${NAME}.${suite}]=] PROPERTIES TIMEOUT ${TIMEOUT})\n")
endforeach()
if(tests STREQUAL "")
    message(FATAL_ERROR "${PROGRAM} has no tests")
endif()
file(WRITE ${LIST} "${tests}")
