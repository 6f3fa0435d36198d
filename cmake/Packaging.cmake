# Debian packages (cpack -G DEB, or `cmake --build BUILD --target package`): the library's
# runtime, its development files, the shell and the app, each a package of its own. The
# programs and the -dev package depend on the runtime of the same version; what the binaries
# link (Qt 6, OpenSSL 3, libedit) becomes dependencies through dpkg-shlibdeps.
set(VELMAR_PACKAGE_COMPONENTS runtime dev shell)
if(VELMAR_BUILD_APP)
  list(APPEND VELMAR_PACKAGE_COMPONENTS app)
endif()

# The licence in Debian's copyright format, in every package.
file(READ "${PROJECT_SOURCE_DIR}/LICENSE" _velmar_license)
string(REGEX REPLACE "\n$" "" _velmar_license "${_velmar_license}")
string(REGEX REPLACE "\n\n" "\n.\n" _velmar_license "${_velmar_license}")
string(REGEX REPLACE "\n" "\n " VELMAR_LICENSE_INDENTED " ${_velmar_license}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/copyright.in" "${PROJECT_BINARY_DIR}/copyright" @ONLY)

set(_velmar_package_names runtime libvelmar${PROJECT_VERSION_MAJOR} dev libvelmar-dev shell velmar
  app thornquill-upload)
foreach(_component IN LISTS VELMAR_PACKAGE_COMPONENTS)
  list(FIND _velmar_package_names ${_component} _at)
  math(EXPR _at "${_at} + 1")
  list(GET _velmar_package_names ${_at} _package)
  string(TOUPPER ${_component} _COMPONENT)
  set(CPACK_DEBIAN_${_COMPONENT}_PACKAGE_NAME ${_package})
  install(FILES "${PROJECT_BINARY_DIR}/copyright" DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${_package}"
    COMPONENT ${_component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velmar)
set(CPACK_PACKAGE_VENDOR "The Velmar developers")
set(CPACK_PACKAGE_CONTACT "The Velmar developers <velmar@example.org>")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://velmar.example.org")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${VELMAR_PACKAGE_COMPONENTS})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# libvelmar itself comes from the runtime package, not from the system.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "event-driven FTP client library for Qt 6
 Velmar runs FTP sessions on the Qt event loop: logon, transfers of single files,
 batches and whole trees, listings, deletes and renames, explicit TLS, with reports
 of every step. No threads; many sessions side by side.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_DEV_DESCRIPTION "event-driven FTP client library for Qt 6 (development files)
 Headers, the CMake package (find_package(Velmar)) and the pkg-config file of the
 Velmar FTP client library.")
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "qt6-base-dev, libssl-dev")
set(CPACK_COMPONENT_SHELL_DESCRIPTION "FTP sessions from scripts, a prompt or one command line
 The velmar shell runs any operation of the Velmar library from a script and prints
 every report as a line; it also does one-line transfers with ftp:// and ftps:// URLs
 (ls, get, put, mirror, rm, rmdir, mv) with logins from ~/.netrc.")
set(CPACK_COMPONENT_SHELL_DEPENDS runtime)
set(CPACK_DEBIAN_SHELL_PACKAGE_SECTION net)
set(CPACK_COMPONENT_APP_DESCRIPTION "upload dropped files and folders to an FTP server
 Thornquill Upload uploads each file or folder dropped on its window by a session of
 its own, with a status row per session and a cancel button.")
set(CPACK_COMPONENT_APP_DEPENDS runtime)
set(CPACK_DEBIAN_APP_PACKAGE_SECTION net)

include(CPack)
