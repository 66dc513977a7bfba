# Where tests start programs from: the folder they are built in. Where an emulator runs them: a folder with a script for each,
# under the same name, so that whoever starts a program need not know.
set(VOICE_PROGRAM_DIR ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(VOICE_PROGRAM_DIR ${PROJECT_BINARY_DIR}/emulated)
endif()

# Tests that write records themselves, on this machine, write them in the order of the target.
set(VOICE_BYTE_ORDER little)
if(CMAKE_C_BYTE_ORDER STREQUAL "BIG_ENDIAN")
    set(VOICE_BYTE_ORDER big)
endif()

# voice_emulated_programs(folder): the scripts for what the folder and those in it build. One script serves all: it finds the
# program by the name that it was started under.
function(voice_emulated_programs folder)
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    get_property(inner DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(type STREQUAL "EXECUTABLE")
            get_target_property(name ${target} OUTPUT_NAME)
            if(NOT name)
                set(name ${target})
            endif()
            file(CREATE_LINK run_emulated ${VOICE_PROGRAM_DIR}/${name} SYMBOLIC)
        endif()
    endforeach()
    foreach(one IN LISTS inner)
        voice_emulated_programs(${one})
    endforeach()
endfunction()

function(voice_write_emulated_programs)
    if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
        return()
    endif()
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    file(CONFIGURE OUTPUT ${VOICE_PROGRAM_DIR}/run_emulated @ONLY CONTENT
        "#!/bin/sh\nexec ${emulator} \"${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/\${0##*/}\" \"$@\"\n")
    file(CHMOD ${VOICE_PROGRAM_DIR}/run_emulated PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
        WORLD_READ WORLD_EXECUTE)
    voice_emulated_programs(${PROJECT_SOURCE_DIR})
endfunction()
