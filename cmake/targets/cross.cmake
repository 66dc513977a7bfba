# What the toolchain files of this folder share: voice_cross(triple processor emulator) sets Debian's cross compiler for the
# triple, and how its programs run here: under an emulator, unless the kernel runs them by itself.
macro(voice_cross triple processor emulator)
    set(CMAKE_SYSTEM_NAME Linux)
    set(CMAKE_SYSTEM_PROCESSOR ${processor})
    set(CMAKE_C_COMPILER ${triple}-gcc)
    set(CMAKE_CXX_COMPILER ${triple}-g++)
    # Libraries and headers of this machine are of no use to the target.
    set(CMAKE_FIND_ROOT_PATH /usr/${triple})
    set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
    set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

    file(GLOB voice_loader /usr/${triple}/lib/ld*.so.*)
    set(voice_runs_here 1)
    if(voice_loader)
        execute_process(COMMAND ${voice_loader} --version RESULT_VARIABLE voice_runs_here OUTPUT_QUIET ERROR_QUIET)
    endif()
    if(voice_runs_here EQUAL 0)
        # The loader and the libraries of the cross compiler's packages stand where no system looks for them.
        set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--dynamic-linker=${voice_loader} -Wl,-rpath,/usr/${triple}/lib")
    else()
        set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L /usr/${triple})
    endif()
endmacro()
