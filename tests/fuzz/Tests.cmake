# Every kept fuzz input (seeds and regressions) through the fuzz targets' entry functions,
# without libFuzzer.
velmar_add_test(fuzz_corpus_replay_test fuzz/CorpusReplayTest.cpp fuzz/ListingLineFuzz.cpp
                fuzz/DirectoryListingFuzz.cpp fuzz/ReplyFuzz.cpp fuzz/PassivePortFuzz.cpp fuzz/ScriptFuzz.cpp
                ${CMAKE_SOURCE_DIR}/shell/ScriptLine.cpp ${CMAKE_SOURCE_DIR}/shell/Json.cpp)
target_compile_definitions(fuzz_corpus_replay_test PRIVATE VELMAR_FUZZ_CORPUS="${CMAKE_CURRENT_SOURCE_DIR}/fuzz/corpus")
