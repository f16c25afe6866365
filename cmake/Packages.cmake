# What an installation has beside the binaries, and the Debian packages that cpack makes of it: folidex-server, the plug-in
# in FileMaker Server's folder, and fmxhost.
find_program(GZIP_PROGRAM gzip REQUIRED)
set(packaging "${PROJECT_SOURCE_DIR}/packaging")
set(documents "${PROJECT_BINARY_DIR}/documents")
file(MAKE_DIRECTORY "${documents}")

# Without name and time of day, so that the same source makes the same package.
function(compressed source)
    get_filename_component(name "${source}" NAME)
    add_custom_command(OUTPUT "${documents}/${name}.gz"
        COMMAND "${GZIP_PROGRAM}" -9nc "${source}" > "${documents}/${name}.gz"
        DEPENDS "${source}"
        VERBATIM)
endfunction()
configure_file("${packaging}/debian/changelog" "${documents}/changelog" @ONLY)
compressed("${documents}/changelog")
compressed("${packaging}/fmxhost.1")
add_custom_target(documents ALL DEPENDS "${documents}/changelog.gz" "${documents}/fmxhost.1.gz")
# Whoever builds the plug-in alone can install it.
add_dependencies(Folidex documents)

set(plugin_package folidex-server)
set(fmxhost_package fmxhost)
set(components plugin)
if(FOLIDEX_HOST)
    list(APPEND components fmxhost)
endif()
foreach(component IN LISTS components)
    install(FILES "${packaging}/debian/copyright" "${documents}/changelog.gz"
            DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${${component}_package}" COMPONENT ${component})
endforeach()

# The reference, how to install, the recipes with what is pasted of them, and what they link to.
install(FILES docs/functions.html docs/functions.md docs/recipes.md docs/install.md docs/encrypted-files.md docs/guarantees.md
              docs/macos.md docs/deviations.txt
        DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${plugin_package}" COMPONENT plugin)
install(DIRECTORY docs/recipes DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${plugin_package}" COMPONENT plugin)

if(FOLIDEX_HOST)
    install(FILES "${documents}/fmxhost.1.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT fmxhost)
    install(FILES "${packaging}/completion/fmxhost.bash"
            DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions" RENAME fmxhost COMPONENT fmxhost)
    # Debian's folder for packages; zsh doesn't look there elsewhere.
    set(zsh_folder vendor-completions)
    if(APPLE)
        set(zsh_folder site-functions)
    endif()
    install(FILES "${packaging}/completion/_fmxhost"
            DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/zsh/${zsh_folder}" COMPONENT fmxhost)
endif()

if(NOT CMAKE_SYSTEM_NAME STREQUAL "Linux")
    return()
endif()
foreach(component IN LISTS components)
    install(FILES "${packaging}/debian/lintian-overrides" DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides"
            RENAME ${${component}_package} COMPONENT ${component})
endforeach()
# Puts the plug-in into the folders of FileMaker Server's engines, and what calls it; the archive script with its program.
install(PROGRAMS "${packaging}/debian/folidex-server/engines" resources/ZipFuncs.sh "${FOLIDEX_SHIPPED_ARCHIVER}" DESTINATION "${FOLIDEX_PLUGIN_DIR}" COMPONENT plugin)
set(control_files postinst prerm triggers)
list(TRANSFORM control_files PREPEND "${packaging}/debian/folidex-server/")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME folidex)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "${FOLIDEX_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "${FOLIDEX_HOMEPAGE}")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_STRIP_FILES ON)
# The plug-in's folder is an absolute one.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()
# Libraries with the versions that the binaries really need; libFMWrapper.so is FileMaker's or fmxhost's, and no package's.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME ${plugin_package})
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SECTION misc)
# What the choosers and KORB_OpenFile talk to where a user sits at the screen.
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SUGGESTS "fmxhost, libsystemd0, libglib2.0-bin, xdg-desktop-portal")
set(CPACK_DEBIAN_PLUGIN_PACKAGE_CONTROL_EXTRA "${control_files}")
set(CPACK_DEBIAN_PLUGIN_DESCRIPTION "file system functions for FileMaker Server
Folidex is a plug-in that gives calculations and scripts of FileMaker solutions
the file system: 41 functions, each also a script step, that list, examine,
copy, move, rename, delete and create files and folders, compress and encrypt
them, and tell about drives.

It is put into the plug-in folders of FileMaker Server's engines and enabled in
the Admin Console. FileMaker Server itself isn't part of this package.")

set(CPACK_DEBIAN_FMXHOST_PACKAGE_NAME ${fmxhost_package})
set(CPACK_DEBIAN_FMXHOST_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_FMXHOST_PACKAGE_RECOMMENDS folidex-server)
set(CPACK_DEBIAN_FMXHOST_DESCRIPTION "host for FileMaker plug-ins without FileMaker
fmxhost loads a FileMaker plug-in as FileMaker does and evaluates calculations
with its functions, from the command line, a file or a prompt. It lists the
functions and script steps that a plug-in registers, so that plug-ins can be
tried, scripted and tested on any machine.")
include(CPack)
