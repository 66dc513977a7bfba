# What tests link is instrumented by voice_test_flags. VOICE_SANITIZE_PROGRAMS instruments the rest as well: libraries, hosts,
# tool and the programs of tests. Never for what is installed.
if(NOT VOICE_SANITIZE_PROGRAMS)
    return()
endif()

# voice_instrument(folder): all targets in it that are not instrumented yet.
function(voice_instrument folder)
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    get_property(inner DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        get_target_property(libraries ${target} LINK_LIBRARIES)
        if(type MATCHES "EXECUTABLE|SHARED_LIBRARY|STATIC_LIBRARY" AND NOT libraries MATCHES "voice_test_flags|_testable")
            target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-sanitize-recover=undefined
                -fno-omit-frame-pointer -O0) # optimized, the compiler warns of what the instruments made of the code
            target_link_options(${target} PRIVATE -fsanitize=address,undefined)
        endif()
    endforeach()
    foreach(one IN LISTS inner)
        voice_instrument(${one})
    endforeach()
endfunction()
voice_instrument(${PROJECT_SOURCE_DIR})
