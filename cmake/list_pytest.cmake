# Writes LIST, a file for ctest with one test per case that pytest finds in SOURCE, a process each, in which pytest itself takes a
# third of a second to begin. So a function with four cases or more is one test with all of them, but for those whose cases are
# whole calls. What Python compiles is kept in CACHE.
set(MANY 4)
set(LONG_CASES "^(busy_peers|faults)_test")

set(ENV{PYTHONPYCACHEPREFIX} ${CACHE})
set(ENV{PYTHONDONTWRITEBYTECODE} "")
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
# Each function once, in order, with the number of its cases.
set(functions "")
foreach(case IN LISTS cases)
    string(REGEX REPLACE "\\[.*" "" function "${case}")
    list(APPEND functions "${function}")
    list(APPEND "cases of ${function}" "${case}")
endforeach()
list(REMOVE_DUPLICATES functions)

set(text "")
# pytest_test(WHAT [PROPERTY VALUE ...]): what pytest runs. The compiled modules are kept also where the environment says that
# none are to be written: each process would compile pytest and Python's own ones, which takes it a second.
function(pytest_test what)
    string(REGEX REPLACE "^(.*)_test\\.py::test_" "integration.\\1." name "${what}")
    string(APPEND text
        "add_test([==[${name}]==] \"${PYTHON}\" -m pytest -q -p no:cacheprovider --tb=short --no-header "
        "[==[${SOURCE}/${what}]==])\n"
        "set_tests_properties([==[${name}]==] PROPERTIES WORKING_DIRECTORY \"${SOURCE}\" "
        "SKIP_REGULAR_EXPRESSION \"(^|\n)[0-9]+ skipped\" "
        "ENVIRONMENT \"VOICE_BIN=${BIN};VOICE_CC=${CC};VOICE_BYTE_ORDER=${ORDER};PYTHONPYCACHEPREFIX=${CACHE};"
        "PYTHONDONTWRITEBYTECODE=\")\n")
    if(ARGN)
        list(JOIN ARGN " " properties)
        string(APPEND text "set_tests_properties([==[${name}]==] PROPERTIES ${properties})\n")
    endif()
    set(text "${text}" PARENT_SCOPE)
endfunction()

# The longest (COST) begin first, or all others end before them.
foreach(function IN LISTS functions)
    list(LENGTH "cases of ${function}" count)
    if(count GREATER_EQUAL MANY AND NOT function MATCHES "${LONG_CASES}")
        pytest_test("${function}" TIMEOUT 300 COST ${count})
        continue()
    endif()
    set(properties "")
    if(function MATCHES "^(soak|busy_peers)_test")
        set(properties COST 100)
    endif()
    foreach(case IN LISTS "cases of ${function}")
        pytest_test("${case}" ${properties})
    endforeach()
endforeach()
file(WRITE ${LIST} "${text}")
