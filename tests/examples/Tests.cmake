# The example programs of examples/, run against a local pyftpdlib.
add_test(NAME examples_against_pyftpdlib
  COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/examples/examples_test.sh ${CMAKE_SOURCE_DIR}
          $<TARGET_FILE_DIR:upload-folder>)
set_tests_properties(examples_against_pyftpdlib PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 120)
