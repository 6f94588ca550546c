# The client is tried as its users have it: the archive and the public header. Its own pieces and those that every test
# links must not meet.
target_link_libraries(client_tests PRIVATE zat_client)
target_compile_definitions(client_tests PRIVATE ZAT_FAKES="${CMAKE_BINARY_DIR}/tests/fake")
add_dependencies(client_tests fake_ms foreign_ms)
