velmar_add_test(faults_control_test faults/ControlFaultsTest.cpp TIMEOUT 300)
