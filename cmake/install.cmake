# What an installed tree needs beyond its files: nothing of this machine in them, and two ways for other projects to find
# them. Components: runtime and development, the library without a bus; bus; sdbus; conformance; tools; test.
include(CMakePackageConfigHelpers)

# Paths in debug information are relative to the root of the sources, and programs find the libraries by their own place.
file(RELATIVE_PATH VOICE_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(VOICE_PROGRAMS voice_application fxs_plugin dect_plugin fxo_plugin dsp_plugin voicectl)
foreach(target voice_plugin kex voice_fake_bus hosts_common hosts_line_plugin hosts_simulator voicectl_commands kex_sdbus kex_conformance
        ${VOICE_PROGRAMS})
    if(TARGET ${target}) # VOICE_HOSTS, VOICE_TOOL and their like
        target_compile_options(${target} PRIVATE
            -fdebug-prefix-map=${PROJECT_BINARY_DIR}=build -fdebug-prefix-map=${PROJECT_SOURCE_DIR}/= -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
    endif()
endforeach()
foreach(target IN LISTS VOICE_PROGRAMS)
    if(TARGET ${target})
        set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${VOICE_BIN_TO_LIB}")
    endif()
endforeach()

# CMake: find_package(voice_plugin) gives voice_plugin::voice_plugin, and as far as they are installed voice_plugin::kex
# and voice_plugin::fake_bus.
set(VOICE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/voice_plugin)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/voice_plugin-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES cmake/voice_plugin-config.cmake ${PROJECT_BINARY_DIR}/package/voice_plugin-config-version.cmake
    DESTINATION ${VOICE_CMAKE_DIR} COMPONENT development)
install(EXPORT voice_plugin-voice_plugin NAMESPACE voice_plugin:: DESTINATION ${VOICE_CMAKE_DIR} COMPONENT development)
install(EXPORT voice_plugin-kex NAMESPACE voice_plugin:: DESTINATION ${VOICE_CMAKE_DIR} COMPONENT bus)
install(EXPORT voice_plugin-fake_bus NAMESPACE voice_plugin:: DESTINATION ${VOICE_CMAKE_DIR} COMPONENT test)

# pkg-config: paths are found from the file's own place, so that the tree can be moved.
file(RELATIVE_PATH VOICE_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" VOICE_PC_TO_PREFIX "${VOICE_PC_TO_PREFIX}")
foreach(folder LIBDIR INCLUDEDIR)
    set(VOICE_PC_${folder} "\${prefix}/${CMAKE_INSTALL_${folder}}")
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
        set(VOICE_PC_${folder} "${CMAKE_INSTALL_${folder}}")
    endif()
endforeach()
function(voice_install_pc name component)
    configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/package/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/package/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT ${component})
endfunction()
voice_install_pc(voice_plugin development)
voice_install_pc(kex bus)
voice_install_pc(voice_fake_bus test)

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)

# The pages with their examples, in the folders that they have here, so that their links lead where they should.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
foreach(folder bus hosts tool)
    install(FILES ${folder}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/${folder} COMPONENT development)
endforeach()
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development FILES_MATCHING
    PATTERN "*.md" PATTERN "*.svg" PATTERN "examples/*.c" PATTERN "examples/*.cpp" PATTERN "examples/*.h"
    PATTERN man EXCLUDE PATTERN tests EXCLUDE)
install(FILES tests/integration/programs/stub_driver.c DESTINATION ${CMAKE_INSTALL_DOCDIR}/tests/integration/programs
    COMPONENT development)
install(DIRECTORY tests/install/project DESTINATION ${CMAKE_INSTALL_DOCDIR}/tests/install COMPONENT development)
