# Folidex.fmplugin: the bundle that FileMaker loads on macOS, its signature and its notarisation.

set(bundle_resources ZipFuncs.sh)
set(reference "${PROJECT_SOURCE_DIR}/docs/functions.html")
set(bundle_languages)
file(GLOB tables CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}/resources"
     "${PROJECT_SOURCE_DIR}/resources/*.lproj/KORBFolidex.strings")
foreach(table IN LISTS tables)
    string(REGEX REPLACE "\\.lproj/.*" "" language "${table}")
    list(APPEND bundle_languages "${language}")
    list(APPEND bundle_resources "${table}")
endforeach()
string(REGEX REPLACE "([^;]+);?" "        <string>\\1</string>\n" FOLIDEX_LANGUAGES "${bundle_languages}")
string(STRIP "${FOLIDEX_LANGUAGES}" FOLIDEX_LANGUAGES)
configure_file("${PROJECT_SOURCE_DIR}/resources/Info.plist.in" "${PROJECT_BINARY_DIR}/Info.plist" @ONLY)

# Ninja copies resources for the sake of a target's objects: without a source of its own it gets none. This one tells the
# version, to what(1).
set(version_text "@(#)PROGRAM:Folidex  PROJECT:Folidex-${PROJECT_VERSION}")
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/bundle_version.cpp" @ONLY
     CONTENT "__attribute__((used)) static const char folidexVersion[] = \"@version_text@\\n\";\n")
target_sources(Folidex PRIVATE "${PROJECT_BINARY_DIR}/bundle_version.cpp")

foreach(resource IN LISTS bundle_resources)
    get_filename_component(folder "${resource}" DIRECTORY)
    target_sources(Folidex PRIVATE "${PROJECT_SOURCE_DIR}/resources/${resource}")
    set_source_files_properties("${PROJECT_SOURCE_DIR}/resources/${resource}" PROPERTIES
        HEADER_FILE_ONLY ON MACOSX_PACKAGE_LOCATION "Resources/${folder}")
endforeach()
target_sources(Folidex PRIVATE "${reference}")
set_source_files_properties("${reference}" PROPERTIES HEADER_FILE_ONLY ON MACOSX_PACKAGE_LOCATION Resources)
set(exports "${PROJECT_SOURCE_DIR}/cmake/exports.txt")
set_target_properties(Folidex PROPERTIES
    BUNDLE ON
    BUNDLE_EXTENSION fmplugin
    MACOSX_BUNDLE_INFO_PLIST "${PROJECT_BINARY_DIR}/Info.plist"
    LINK_DEPENDS "${exports}")
target_link_options(Folidex PRIVATE "LINKER:-exported_symbols_list,${exports}" LINKER:-dead_strip)

# FileMaker carries FMWrapper.framework, fmxhost has the kit's library loaded: no path of a build folder may stay inside.
set_target_properties(Folidex PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "@executable_path/../Frameworks")

install(TARGETS Folidex LIBRARY DESTINATION "${FOLIDEX_PLUGIN_DIR}" BUNDLE DESTINATION "${FOLIDEX_PLUGIN_DIR}"
        COMPONENT plugin)

set(FOLIDEX_SIGN_IDENTITY "" CACHE STRING "Signing identity, as \"Developer ID Application: NAME (TEAM)\"")
set(FOLIDEX_NOTARY_PROFILE "" CACHE STRING "Keychain profile made by xcrun notarytool store-credentials")
foreach(step IN ITEMS sign notarise)
    add_custom_target(${step}
        COMMAND "${CMAKE_COMMAND}" -DSTEP=${step} "-DBUNDLE=$<TARGET_BUNDLE_DIR:Folidex>"
                "-DIDENTITY=${FOLIDEX_SIGN_IDENTITY}" "-DPROFILE=${FOLIDEX_NOTARY_PROFILE}"
                "-DZIP=${PROJECT_BINARY_DIR}/Folidex.zip" -P "${PROJECT_SOURCE_DIR}/cmake/SignBundle.cmake"
        DEPENDS Folidex
        VERBATIM)
endforeach()
add_dependencies(notarise sign)
