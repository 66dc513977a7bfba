# Writes LIST, a file for ctest with one test per case that pytest finds in SOURCE. What Python compiles is kept in CACHE: each
# case is a process of its own.
set(ENV{PYTHONPYCACHEPREFIX} ${CACHE})
execute_process(COMMAND ${PYTHON} -m pytest --collect-only -q -p no:cacheprovider --rootdir ${SOURCE} ${SOURCE}
    WORKING_DIRECTORY ${SOURCE} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "pytest cannot list the integration tests:\n${output}")
endif()

string(REGEX MATCHALL "[^\n]+::[^\n]+" cases "${output}")
# Brackets inside a case's own brackets would hold the elements of a CMake list together.
if(output MATCHES "\n[^\n[]+\\[[^\n]*[][;][^\n]*\\](\n|$)")
    message(FATAL_ERROR "a test's name has brackets or semicolons in its brackets:\n${CMAKE_MATCH_0}")
endif()
set(text "")
foreach(case IN LISTS cases)
    string(REGEX REPLACE "^(.*)_test\\.py::test_" "integration.\\1." name "${case}")
    string(APPEND text
        "add_test([==[${name}]==] \"${PYTHON}\" -m pytest -q -p no:cacheprovider --tb=short --no-header "
        "[==[${SOURCE}/${case}]==])\n"
        "set_tests_properties([==[${name}]==] PROPERTIES WORKING_DIRECTORY \"${SOURCE}\" "
        "SKIP_REGULAR_EXPRESSION \"(^|\n)1 skipped\" ENVIRONMENT \"VOICE_BIN=${BIN};VOICE_BYTE_ORDER=${ORDER};PYTHONPYCACHEPREFIX=${CACHE}\")\n")
    if(case MATCHES "^(soak|busy_peers)_test") # the longest begin first, or all others end before them
        string(APPEND text "set_tests_properties([==[${name}]==] PROPERTIES COST 100)\n")
    endif()
endforeach()
file(WRITE ${LIST} "${text}")
