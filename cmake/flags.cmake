# The two sets of compiler flags: what every target gets, and what a library without the C++ runtime gets on top.

# Logs and captures of more than 2 GiB, and numbers of files beyond 32 bits: without it such a file cannot even be looked at.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    add_compile_definitions(_FILE_OFFSET_BITS=64)
endif()

add_library(voice_warnings INTERFACE)
target_compile_options(voice_warnings INTERFACE -Wall -Wextra $<$<BOOL:${VOICE_WERROR}>:-Werror>
    # clang counts braces that C++ lets one leave out, as in rows of tests that begin with a base class.
    $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-missing-braces>)

# C++20 inside, C outside: nothing of the C++ runtime library may be needed, and only the export list is visible.
add_library(voice_core_flags INTERFACE)
target_link_libraries(voice_core_flags INTERFACE voice_warnings)
target_compile_options(voice_core_flags INTERFACE
    -Wconversion -Wshadow -Wformat=2 -Wundef -Wmissing-declarations
    $<$<CXX_COMPILER_ID:GNU>:-Wcast-align=strict> $<$<CXX_COMPILER_ID:GNU>:-Wformat-signedness> # clang 14 has neither
    -fvisibility=hidden -ffunction-sections -fdata-sections
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions>
    $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>
    $<$<COMPILE_LANGUAGE:CXX>:-fno-threadsafe-statics>
    -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_link_options(voice_core_flags INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,--gc-sections)

# voice_core_link(target map): links with the C driver, so that a stray use of the C++ runtime fails to link, and
# exports only what the map lists.
function(voice_core_link target map)
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C LINK_DEPENDS ${map})
    target_link_options(${target} PRIVATE -Wl,--version-script=${map})
endfunction()

# voice_version_script(list map): writes the map of a list of exports, rows of a kind and a name.
function(voice_version_script list map)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
    file(STRINGS ${list} rows REGEX "^[fd] ")
    set(names "")
    foreach(row IN LISTS rows)
        string(SUBSTRING "${row}" 2 -1 name)
        string(APPEND names "    ${name};\n")
    endforeach()
    file(CONFIGURE OUTPUT ${map} CONTENT "{\nglobal:\n${names}local:\n    *;\n};\n" @ONLY)
endfunction()

# Tests run the code under the sanitizers; shipped binaries never do. voice_tested_flags: what is tested. voice_test_flags: what
# tests it, and links what is tested.
add_library(voice_tested_flags INTERFACE)
add_library(voice_test_flags INTERFACE)
# Lines of what is tested for the sanitizers' reports, and no more: Debug is for debuggers. GoogleTest names those of tests.
target_compile_options(voice_tested_flags INTERFACE $<$<CONFIG:RelWithDebInfo>:-g1>)
if(VOICE_FUZZ)
    # Optimized: here the time goes into running.
    target_compile_options(voice_tested_flags INTERFACE -fsanitize=fuzzer-no-link,address,undefined
        -fno-sanitize-recover=undefined -fno-omit-frame-pointer -O1 -g)
elseif(VOICE_SANITIZE)
    # Unoptimized: optimizing instrumented code takes five times as long as running it saves.
    target_compile_options(voice_tested_flags INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=undefined
        -fno-omit-frame-pointer -O0)
endif()
if(VOICE_SANITIZE AND NOT VOICE_FUZZ AND NOT VOICE_SANITIZE_PROGRAMS)
    # What guards the ends of each array that a test hands over, and no more: the rest doubles the time to compile.
    target_compile_options(voice_test_flags INTERFACE -fsanitize=address -fno-sanitize-address-use-after-scope
        -fno-omit-frame-pointer -O0 $<$<CONFIG:RelWithDebInfo>:-g0>)
else()
    target_link_libraries(voice_test_flags INTERFACE voice_tested_flags)
endif()
if(VOICE_FUZZ OR VOICE_SANITIZE)
    target_link_options(voice_test_flags INTERFACE -fsanitize=address,undefined)
endif()
# Some hundred programs with all of GoogleTest in them: gold links one in two thirds of the time. It warns of a symbol of clang's
# sanitizer in programs that export theirs.
if(NOT VOICE_FUZZ AND CMAKE_SYSTEM_PROCESSOR MATCHES "86" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    include(CheckLinkerFlag)
    check_linker_flag(CXX -fuse-ld=gold VOICE_HAS_GOLD)
    if(VOICE_HAS_GOLD)
        target_link_options(voice_test_flags INTERFACE -fuse-ld=gold)
    endif()
endif()
if(CMAKE_CROSSCOMPILING)
    # What ships is built as it ships; what is only run once is quicker to compile.
    target_compile_options(voice_tested_flags INTERFACE -O0)
    target_compile_options(voice_test_flags INTERFACE -O0)
endif()
# voice_testable(library): it holds code that is tested.
function(voice_testable library)
    target_link_libraries(${library} PRIVATE voice_tested_flags INTERFACE voice_test_flags)
endfunction()
# What a process of a test ran counts however it ends. For programs whose tests end a process early.
add_library(voice_test_end INTERFACE)
if(VOICE_COVERAGE)
    target_compile_options(voice_tested_flags INTERFACE --coverage -O0)
    target_compile_options(voice_test_flags INTERFACE --coverage -O0)
    target_link_options(voice_test_flags INTERFACE --coverage)
    target_sources(voice_test_end INTERFACE ${PROJECT_SOURCE_DIR}/tests/coverage/count_before_end.cpp)
    target_link_options(voice_test_end INTERFACE -Wl,--wrap=_exit)
endif()
