# voice_plugin::voice_plugin    the library; the host brings a bus: voice_plugin::kex or its own
# voice_plugin::kex             the bundled bus and trace service
# voice_plugin::fake_bus        stands in for a bus in tests
#
# Components: kex, fake_bus. Without any, what is installed is there.
include(${CMAKE_CURRENT_LIST_DIR}/voice_plugin-voice_plugin.cmake)
foreach(part kex fake_bus)
    include(${CMAKE_CURRENT_LIST_DIR}/voice_plugin-${part}.cmake OPTIONAL)
    if(TARGET voice_plugin::${part})
        set(voice_plugin_${part}_FOUND TRUE)
    endif()
endforeach()
foreach(part IN LISTS voice_plugin_FIND_COMPONENTS)
    if(voice_plugin_FIND_REQUIRED_${part} AND NOT voice_plugin_${part}_FOUND)
        set(voice_plugin_FOUND FALSE)
        set(voice_plugin_NOT_FOUND_MESSAGE "its part ${part} is not installed beside it")
    endif()
endforeach()
