# Platform layer: strings and encodings, files and streams, sockets and timers.
velmar_add_test(platform_strings_test platform/StringsTest.cpp)
velmar_add_test(platform_files_test platform/FilesTest.cpp)
velmar_add_test(platform_event_sources_test platform/EventSourcesTest.cpp)
