# Platform layer: string functions, text encodings, text streams, files and folders.
velmar_add_test(platform_strings_test platform/StringsTest.cpp)
velmar_add_test(platform_textencoding_test platform/TextEncodingTest.cpp)
velmar_add_test(platform_textstreams_test platform/TextStreamsTest.cpp)
velmar_add_test(platform_files_test platform/FilesTest.cpp)
velmar_add_test(platform_timer_test platform/TimerTest.cpp)
velmar_add_test(platform_socket_test platform/SocketTest.cpp)
velmar_add_test(platform_binary_stream_test platform/BinaryStreamTest.cpp)
