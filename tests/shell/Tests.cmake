# The velmar shell: its line splitter and JSON on their own, then the built binary.
velmar_add_test(shell_script_line_test shell/ScriptLineTest.cpp ${CMAKE_SOURCE_DIR}/shell/ScriptLine.cpp
                ${CMAKE_SOURCE_DIR}/shell/FtpUrl.cpp ${CMAKE_SOURCE_DIR}/shell/Netrc.cpp)
velmar_add_test(shell_json_test shell/JsonTest.cpp ${CMAKE_SOURCE_DIR}/shell/Json.cpp)
velmar_add_test(shell_binary_test shell/ShellBinaryTest.cpp)
velmar_add_test(shell_network_test shell/ShellNetworkTest.cpp)
velmar_add_test(shell_terminal_test shell/ShellTerminalTest.cpp)
velmar_add_test(shell_operations_test shell/ShellOperationsTest.cpp ${CMAKE_SOURCE_DIR}/shell/ShellOperations.cpp
                ${CMAKE_SOURCE_DIR}/shell/Json.cpp)
