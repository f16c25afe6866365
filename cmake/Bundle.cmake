# Folidex.fmplugin: the bundle that FileMaker loads on macOS, its signature and its notarisation.
#
# The targets sign and notarise run this file as a script. STEP=sign: signs what is in BUNDLE and then the bundle as
# IDENTITY, under the hardened runtime. STEP=notarise: has it checked by Apple with the CREDENTIALS, by way of the archive
# ZIP, and staples the ticket to it. codesign(1), notarytool(1), stapler(1), spctl(8).

if(CMAKE_SCRIPT_MODE_FILE)
    function(run)
        execute_process(COMMAND ${ARGV} RESULT_VARIABLE status)
        if(NOT status EQUAL 0)
            list(JOIN ARGV " " command)
            message(FATAL_ERROR "failed (${status}): ${command}")
        endif()
    endfunction()

    if(NOT IDENTITY)
        message(FATAL_ERROR "No signing identity. Configure with\n"
            "  -DFOLIDEX_SIGN_IDENTITY=\"Developer ID Application: NAME (TEAM)\"\n"
            "`security find-identity -v -p codesigning` lists those in the keychain. A certificate of this kind comes with "
            "membership in the Apple Developer Program. For this Mac alone \"-\" signs without one.")
    endif()
    if(STEP STREQUAL "notarise" AND (NOT CREDENTIALS OR IDENTITY STREQUAL "-"))
        message(FATAL_ERROR "Notarising needs a Developer ID identity (FOLIDEX_SIGN_IDENTITY) and Apple's credentials. "
            "Store them once by\n  xcrun notarytool store-credentials PROFILE --apple-id ADDRESS --team-id TEAM\n"
            "and configure with -DFOLIDEX_NOTARY_CREDENTIALS=\"--keychain-profile PROFILE\", or name a key of App Store "
            "Connect: \"--key FILE --key-id ID --issuer ISSUER\".")
    endif()

    if(STEP STREQUAL "sign")
        set(timestamp --timestamp)
        if(IDENTITY STREQUAL "-")
            set(timestamp --timestamp=none)
        endif()
        # From the inside out, because a bundle's signature holds those of the code in it (Apple's technical note TN2206).
        # The bundle's own binary is signed with the bundle.
        file(GLOB programs "${BUNDLE}/Contents/MacOS/*" "${BUNDLE}/Contents/Helpers/*")
        get_filename_component(name "${BUNDLE}" NAME_WE)
        list(REMOVE_ITEM programs "${BUNDLE}/Contents/MacOS/${name}")
        foreach(code IN LISTS programs ITEMS "${BUNDLE}")
            run(codesign --force --options runtime ${timestamp} --prefix com.folidex. --sign "${IDENTITY}" "${code}")
        endforeach()
        run(codesign --verify --deep --strict --verbose=2 "${BUNDLE}")
    elseif(STEP STREQUAL "notarise")
        separate_arguments(CREDENTIALS UNIX_COMMAND "${CREDENTIALS}")
        run(ditto -c -k --keepParent "${BUNDLE}" "${ZIP}")
        run(xcrun notarytool submit "${ZIP}" ${CREDENTIALS} --wait)
        run(xcrun stapler staple "${BUNDLE}")
        run(xcrun stapler validate "${BUNDLE}")
        # As Gatekeeper judges what is neither an application nor a document.
        run(spctl --assess --type install --verbose=2 "${BUNDLE}")
    endif()
    return()
endif()

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

# The archive script's program, where nested code belongs (Apple's technical note TN2206).
add_custom_command(TARGET Folidex POST_BUILD
    COMMAND "${CMAKE_COMMAND}" -E copy_if_different "${FOLIDEX_SHIPPED_ARCHIVER}"
            "$<TARGET_BUNDLE_CONTENT_DIR:Folidex>/Helpers/folidex-archive"
    VERBATIM)
add_dependencies(Folidex shipped_archiver)
set_property(TARGET Folidex APPEND PROPERTY LINK_DEPENDS "${FOLIDEX_SHIPPED_ARCHIVER}")

set(FOLIDEX_SIGN_IDENTITY "" CACHE STRING "Signing identity, as \"Developer ID Application: NAME (TEAM)\"")
set(FOLIDEX_NOTARY_CREDENTIALS "" CACHE STRING "Options of notarytool that say who submits, as \"--keychain-profile NAME\"")
foreach(step IN ITEMS sign notarise)
    add_custom_target(${step}
        COMMAND "${CMAKE_COMMAND}" -DSTEP=${step} "-DBUNDLE=$<TARGET_BUNDLE_DIR:Folidex>"
                "-DIDENTITY=${FOLIDEX_SIGN_IDENTITY}" "-DCREDENTIALS=${FOLIDEX_NOTARY_CREDENTIALS}"
                "-DZIP=${PROJECT_BINARY_DIR}/Folidex.zip" -P "${CMAKE_CURRENT_LIST_FILE}"
        DEPENDS Folidex
        VERBATIM)
endforeach()
add_dependencies(notarise sign)
