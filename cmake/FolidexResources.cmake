# Where the plug-in is one file, its resources are compiled in.
set(embedded_source "${PROJECT_BINARY_DIR}/embedded.cpp")
set(embedded_files
    stringsTable=${PROJECT_SOURCE_DIR}/resources/en.lproj/KORBFolidex.strings
    zipFuncs=${PROJECT_SOURCE_DIR}/resources/ZipFuncs.sh)
add_custom_command(
    OUTPUT "${embedded_source}"
    COMMAND "${CMAKE_COMMAND}" "-DOUTPUT=${embedded_source}" "-DFILES=${embedded_files}"
            -P "${PROJECT_SOURCE_DIR}/cmake/EmbedResources.cmake"
    DEPENDS resources/en.lproj/KORBFolidex.strings resources/ZipFuncs.sh "${PROJECT_SOURCE_DIR}/cmake/EmbedResources.cmake"
    VERBATIM)
target_sources(folidex_core PRIVATE "${embedded_source}")
