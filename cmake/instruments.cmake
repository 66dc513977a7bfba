# What tests link is instrumented by voice_tested_flags and voice_test_flags. Two options instrument programs as well, never what is installed:
# VOICE_SANITIZE_PROGRAMS all of them and the libraries, VOICE_COVERAGE hosts and tool.

# voice_instrument(folder option ...): all targets in it that are not instrumented yet, with these options to compile and link.
function(voice_instrument folder)
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    get_property(inner DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        get_target_property(libraries ${target} LINK_LIBRARIES)
        if(type MATCHES "EXECUTABLE|SHARED_LIBRARY|STATIC_LIBRARY|OBJECT_LIBRARY" AND NOT libraries MATCHES "voice_test(ed)?_flags|_testable")
            target_compile_options(${target} PRIVATE ${ARGN}
                -O0) # optimized, the compiler warns of what the instruments made of the code
            target_link_options(${target} PRIVATE ${ARGN})
            if(type STREQUAL "STATIC_LIBRARY") # whoever links it needs the instruments too
                target_link_options(${target} INTERFACE ${ARGN})
            endif()
        endif()
    endforeach()
    foreach(one IN LISTS inner)
        voice_instrument(${one} ${ARGN})
    endforeach()
endfunction()

if(VOICE_SANITIZE_PROGRAMS)
    voice_instrument(${PROJECT_SOURCE_DIR}
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
endif()
if(VOICE_COVERAGE)
    foreach(folder hosts tool)
        voice_instrument(${PROJECT_SOURCE_DIR}/${folder} --coverage)
    endforeach()
endif()
