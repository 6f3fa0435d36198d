# Self-tests of the test support: the scripted server fixture and the real-server launchers.
velmar_add_test(support_fixture_test support/ScriptedFtpServerTest.cpp)
velmar_add_test(support_real_servers_test support/RealFtpServerTest.cpp)
