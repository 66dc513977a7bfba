# This machine's processor with musl in place of the GNU C library. No C++ library is packaged for it: library, bus and hosts
# need none. Their C++ sources are compiled against musl's headers; what the compiler itself brings comes from behind these.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY) # C++ programs do not link, and none is made
execute_process(COMMAND g++ -print-file-name=include OUTPUT_VARIABLE voice_compiler_headers
    OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE voice_compiler_version OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -print-multiarch OUTPUT_VARIABLE voice_machine OUTPUT_STRIP_TRAILING_WHITESPACE)
string(REPLACE "-gnu" "-musl" voice_musl_machine "${voice_machine}")
# The kernel's own headers belong to no C library; musl's package has none of its own.
set(voice_kernel_headers ${CMAKE_BINARY_DIR}/kernel_headers)
file(MAKE_DIRECTORY ${voice_kernel_headers})
file(CREATE_LINK /usr/include/linux ${voice_kernel_headers}/linux SYMBOLIC)
file(CREATE_LINK /usr/include/asm-generic ${voice_kernel_headers}/asm-generic SYMBOLIC)
file(CREATE_LINK /usr/include/${voice_machine}/asm ${voice_kernel_headers}/asm SYMBOLIC)
string(CONCAT CMAKE_CXX_FLAGS_INIT
    "-nostdinc -nostdinc++ -isystem /usr/include/${voice_musl_machine} -isystem ${voice_compiler_headers}"
    " -idirafter /usr/include/c++/${voice_compiler_version}"
    " -idirafter /usr/include/${voice_machine}/c++/${voice_compiler_version}"
    " -isystem ${voice_kernel_headers}"
    " '-D__GLIBC_PREREQ(major,minor)=0'") # the compiler's own headers ask
