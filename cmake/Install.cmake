# Install rules: the library with its public headers, the shell, and the files that let
# other projects find the library through CMake (find_package(Velmar)) or pkg-config.
include(CMakePackageConfigHelpers)

set(VELMAR_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/Velmar"
  CACHE STRING "Where VelmarConfig.cmake is installed, relative to the prefix")
set(VELMAR_INSTALL_PKGCONFIGDIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
  CACHE STRING "Where velmar.pc is installed, relative to the prefix")

# The installed shell finds the installed library next to it, wherever the prefix is.
file(RELATIVE_PATH _velmar_bin_to_lib
  "/prefix/${CMAKE_INSTALL_BINDIR}" "/prefix/${CMAKE_INSTALL_LIBDIR}")
set_target_properties(velmar-shell PROPERTIES INSTALL_RPATH "$ORIGIN/${_velmar_bin_to_lib}")

# Components, one per Debian package (cmake/Packaging.cmake): runtime, dev, shell.
install(TARGETS velmar
  EXPORT VelmarTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev
  RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT runtime)
install(TARGETS velmar-shell RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT shell)
install(FILES "${PROJECT_SOURCE_DIR}/man/velmar.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT shell)

# Public headers keep their folders, because they include each other as "folder/Name.h".
# CONFIGURE_DEPENDS: a header added later is picked up without a manual re-run of cmake.
foreach(_velmar_dir IN ITEMS platform session data commands listing sequences)
  file(GLOB_RECURSE _velmar_headers CONFIGURE_DEPENDS
    RELATIVE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/${_velmar_dir}/*.h")
  foreach(_velmar_header IN LISTS _velmar_headers)
    get_filename_component(_velmar_header_dir "${_velmar_header}" DIRECTORY)
    install(FILES "${PROJECT_SOURCE_DIR}/${_velmar_header}"
      DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/velmar/${_velmar_header_dir}" COMPONENT dev)
  endforeach()
endforeach()

install(EXPORT VelmarTargets
  NAMESPACE Velmar::
  FILE VelmarTargets.cmake
  DESTINATION "${VELMAR_INSTALL_CMAKEDIR}"
  COMPONENT dev)

# A static libvelmar carries its private OpenSSL link into the consumer's link line.
if(BUILD_SHARED_LIBS)
  set(VELMAR_STATIC_LIBRARY OFF)
  set(VELMAR_PC_REQUIRES_PRIVATE "")
else()
  set(VELMAR_STATIC_LIBRARY ON)
  set(VELMAR_PC_REQUIRES_PRIVATE "Requires.private: libssl libcrypto")
endif()

configure_package_config_file(
  "${CMAKE_CURRENT_LIST_DIR}/VelmarConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/VelmarConfig.cmake"
  INSTALL_DESTINATION "${VELMAR_INSTALL_CMAKEDIR}")
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/VelmarConfigVersion.cmake"
  VERSION "${PROJECT_VERSION}"
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/VelmarConfig.cmake"
  "${PROJECT_BINARY_DIR}/VelmarConfigVersion.cmake"
  DESTINATION "${VELMAR_INSTALL_CMAKEDIR}"
  COMPONENT dev)

# velmar.pc locates the prefix from its own place (${pcfiledir}), so the same file is right
# for `cmake --install --prefix` into any folder and for a DESTDIR staging.
if(IS_ABSOLUTE "${VELMAR_INSTALL_PKGCONFIGDIR}")
  set(VELMAR_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH _velmar_pc_to_prefix "/prefix/${VELMAR_INSTALL_PKGCONFIGDIR}" "/prefix")
  string(REGEX REPLACE "/$" "" _velmar_pc_to_prefix "${_velmar_pc_to_prefix}")
  set(VELMAR_PC_PREFIX "\${pcfiledir}/${_velmar_pc_to_prefix}")
endif()
foreach(_velmar_kind IN ITEMS LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_velmar_kind}}")
    set(VELMAR_PC_${_velmar_kind} "${CMAKE_INSTALL_${_velmar_kind}}")
  else()
    set(VELMAR_PC_${_velmar_kind} "\${prefix}/${CMAKE_INSTALL_${_velmar_kind}}")
  endif()
endforeach()
configure_file("${CMAKE_CURRENT_LIST_DIR}/velmar.pc.in" "${PROJECT_BINARY_DIR}/velmar.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/velmar.pc" DESTINATION "${VELMAR_INSTALL_PKGCONFIGDIR}" COMPONENT dev)
