# The same targets as the fuzzer's (engine/), built with everything else, so that they go on being built.
target_link_libraries(fuzz_tests PRIVATE zat_till_parts zat_client_parts)
target_include_directories(fuzz_tests PRIVATE ${folder} ${CMAKE_CURRENT_SOURCE_DIR}/link)
target_compile_definitions(fuzz_tests PRIVATE ZAT_FUZZ_CORPUS="${folder}/corpus")
