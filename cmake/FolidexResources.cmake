# Where the plug-in is one file, its resources are compiled in.
set(embedded_source "${PROJECT_BINARY_DIR}/embedded.cpp")
add_custom_command(
    OUTPUT "${embedded_source}"
    COMMAND "${CMAKE_COMMAND}" "-DOUTPUT=${embedded_source}" "-DTABLE=${PROJECT_SOURCE_DIR}/resources/en.lproj/KORBFolidex.strings"
            "-DSCRIPT=${PROJECT_SOURCE_DIR}/resources/ZipFuncs.sh" -P "${PROJECT_SOURCE_DIR}/cmake/EmbedResources.cmake"
    DEPENDS resources/en.lproj/KORBFolidex.strings resources/ZipFuncs.sh "${PROJECT_SOURCE_DIR}/cmake/EmbedResources.cmake"
    VERBATIM)
target_sources(folidex_core PRIVATE "${embedded_source}")
