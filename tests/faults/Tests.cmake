velmar_add_test(faults_control_test faults/ControlFaultsTest.cpp TIMEOUT 300)
velmar_add_test(faults_local_test faults/LocalFaultsTest.cpp faults/PacingTest.cpp)
velmar_add_test(faults_load_test faults/LoadTest.cpp TIMEOUT 600)
