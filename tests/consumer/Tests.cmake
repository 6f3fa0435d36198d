# The install test: installs this build into a scratch prefix and builds a separate
# project against it, through find_package(Velmar) and through pkg-config.
add_test(NAME consumer.install
  COMMAND "${CMAKE_COMMAND}"
    "-DVELMAR_BUILD_DIR=${CMAKE_BINARY_DIR}"
    "-DVELMAR_BUILD_CONFIG=$<CONFIG>"
    "-DCONSUMER_SOURCE_DIR=${CMAKE_CURRENT_LIST_DIR}/project"
    "-DWORK_DIR=${CMAKE_BINARY_DIR}/consumer-install"
    "-DGENERATOR=${CMAKE_GENERATOR}"
    "-DCXX_COMPILER=${CMAKE_CXX_COMPILER}"
    "-DCXX_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER}"
    "-DSANITIZE=${VELMAR_SANITIZE}"
    -P "${CMAKE_CURRENT_LIST_DIR}/ConsumerTest.cmake")
set_tests_properties(consumer.install PROPERTIES LABELS install TIMEOUT 300)

# The same from the Debian packages, unpacked into a throwaway root.
find_program(DPKG_DEB dpkg-deb)
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
if(DPKG_DEB AND DPKG_SHLIBDEPS)
  add_test(NAME consumer.packages
    COMMAND "${CMAKE_COMMAND}"
      "-DVELMAR_BUILD_DIR=${CMAKE_BINARY_DIR}"
      "-DCONSUMER_SOURCE_DIR=${CMAKE_CURRENT_LIST_DIR}/project"
      "-DWORK_DIR=${CMAKE_BINARY_DIR}/consumer-packages"
      "-DGENERATOR=${CMAKE_GENERATOR}"
      "-DCXX_COMPILER=${CMAKE_CXX_COMPILER}"
      "-DCXX_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER}"
      "-DSANITIZE=${VELMAR_SANITIZE}"
      -DPACKAGES=ON
      -P "${CMAKE_CURRENT_LIST_DIR}/ConsumerTest.cmake")
  set_tests_properties(consumer.packages PROPERTIES LABELS install TIMEOUT 300)
endif()
