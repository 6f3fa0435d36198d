# Thornquill Upload: widget tests on the offscreen platform with their own main() (widgets
# need a QApplication), and end-to-end drops to a real server on port 21 in a private
# network namespace.
find_package(Qt6 REQUIRED COMPONENTS Widgets Test)

# The support library's archive also holds a main() for QCoreApplication tests; the linker
# takes ours, since WidgetTestMain.cpp defines main before the archive is searched.
add_executable(app_widgets_test
  app/WidgetTestMain.cpp
  app/WindowLayoutTest.cpp
  app/PreferencesTest.cpp
  app/DropTest.cpp
  app/CommandLineTest.cpp
)
target_compile_options(app_widgets_test PRIVATE -Wall -Wextra)
target_include_directories(app_widgets_test PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/app)
target_link_libraries(app_widgets_test PRIVATE thornquill-app velmar-test-support Qt6::Test GTest::gtest)
gtest_discover_tests(app_widgets_test TEST_PREFIX "app_widgets_test." DISCOVERY_MODE PRE_TEST
  PROPERTIES TIMEOUT 120 ENVIRONMENT "QT_QPA_PLATFORM=offscreen")

# End to end: the built program against vsftpd (pyftpdlib when vsftpd cannot start) on
# 127.0.0.1:21 in a private network namespace; exit code 77 where no namespace can be made.
add_test(NAME app_e2e_drop
  COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/app/e2e_drop.sh $<TARGET_FILE:thornquill-upload>)
add_test(NAME app_e2e_drop_500
  COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/app/e2e_drop.sh $<TARGET_FILE:thornquill-upload> 500)
set_tests_properties(app_e2e_drop app_e2e_drop_500 PROPERTIES
  LABELS e2e SKIP_RETURN_CODE 77 TIMEOUT 300
  # Each creates a system user and runs a server: not side by side with each other.
  RESOURCE_LOCK thornquill_e2e)
