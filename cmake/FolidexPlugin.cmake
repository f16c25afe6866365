# Links the rooms into the plug-in that FileMaker loads.

# The SDK that the plug-in is compiled against: the kit, or the vendor's, whose headers may lie in a framework.
add_library(fmx_sdk INTERFACE)
if(FMX_SDK_INCLUDE_DIR)
    if(APPLE)
        string(REGEX REPLACE "(\\.framework)(/Versions/[^/]+)?/Headers/?$" "\\1" FMX_SDK_INCLUDE_DIR "${FMX_SDK_INCLUDE_DIR}")
    endif()
    target_include_directories(fmx_sdk SYSTEM INTERFACE "${FMX_SDK_INCLUDE_DIR}")
else()
    target_include_directories(fmx_sdk INTERFACE $<TARGET_PROPERTY:FMWrapper,INTERFACE_INCLUDE_DIRECTORIES>)
endif()

target_include_directories(folidex_core PUBLIC "${PROJECT_SOURCE_DIR}")
target_link_libraries(folidex_core PRIVATE fmx_sdk)
set_target_properties(folidex_core PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
                      OBJCXX_VISIBILITY_PRESET hidden)

add_library(Folidex MODULE)
target_link_libraries(Folidex PRIVATE folidex_core)
if(FMX_SDK_LIBRARY)
    target_link_libraries(Folidex PRIVATE "${FMX_SDK_LIBRARY}")
else()
    target_link_libraries(Folidex PRIVATE FMWrapper)
endif()

# Its name, and the path by which a host is told of it.
set(FOLIDEX_PLUGIN_NAME "Folidex.fmx")
set(FOLIDEX_PLUGIN_FILE "$<TARGET_FILE:Folidex>")
if(APPLE)
    set(FOLIDEX_PLUGIN_NAME "Folidex.fmplugin")
    set(FOLIDEX_PLUGIN_FILE "$<TARGET_BUNDLE_DIR:Folidex>")
    include(FolidexBundle)
    return()
endif()

# One file on Linux servers, where FileMaker supplies libFMWrapper.so, in a folder of its own: no path of a build folder may
# stay inside.
set_target_properties(Folidex PROPERTIES
    PREFIX "" SUFFIX ".fmx"
    BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH /opt/FileMaker/lib
    LINK_DEPENDS "${PROJECT_SOURCE_DIR}/cmake/exports.map")
# FileMaker takes a plug-in's version from its soname.
target_link_options(Folidex PRIVATE "-Wl,-soname,${PROJECT_VERSION}" -Wl,--enable-new-dtags
    "-Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map" -Wl,--no-undefined -Wl,--gc-sections)
if(NOT FOLIDEX_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    target_compile_options(folidex_core PRIVATE -ffunction-sections -fdata-sections)
    target_link_options(Folidex PRIVATE -Wl,--strip-debug)
endif()

if(FOLIDEX_COCOA)
    # The Objective-C run-time library keeps pointers to every class that was ever loaded.
    target_link_options(Folidex PRIVATE -Wl,-z,nodelete)
    set_target_properties(Folidex PROPERTIES LINKER_LANGUAGE CXX)
    return()
endif()
install(TARGETS Folidex LIBRARY DESTINATION "${FOLIDEX_PLUGIN_DIR}" COMPONENT plugin
        PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
