# The API reference: `cmake --build BUILD --target docs` (Doxygen from Debian). A warning of
# Doxygen, or of groff on the man pages, fails the target.
find_package(Doxygen)
find_package(Python3 COMPONENTS Interpreter)
find_program(GROFF groff)
if(DOXYGEN_FOUND AND Python3_FOUND)
  set(VELMAR_DOCS_DIR "${PROJECT_BINARY_DIR}/docs")
  configure_file("${PROJECT_SOURCE_DIR}/docs/api/Doxyfile.in" "${PROJECT_BINARY_DIR}/Doxyfile" @ONLY)
  set(_velmar_man_checks)
  if(GROFF)
    foreach(_page IN ITEMS velmar.1 thornquill-upload.1)
      # groff prints its warnings and still succeeds: any output counts as a failure.
      list(APPEND _velmar_man_checks COMMAND sh -c
        "out=$(${GROFF} -man -Tutf8 -ww -z '${PROJECT_SOURCE_DIR}/man/${_page}' 2>&1); [ -z \"$out\" ] || { echo \"$out\"; exit 1; }")
    endforeach()
  endif()
  add_custom_target(docs
    COMMAND "${DOXYGEN_EXECUTABLE}" "${PROJECT_BINARY_DIR}/Doxyfile"
    ${_velmar_man_checks}
    WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
    COMMENT "API reference in ${VELMAR_DOCS_DIR}/html/index.html; man pages checked"
    VERBATIM)
endif()
