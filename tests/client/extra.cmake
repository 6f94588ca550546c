# The pieces are tried as our own programs have them. The archive that others link is tried by the C++ example, and
# here for its names: one that is not the public header's could meet one of a user's program.
target_link_libraries(client_tests PRIVATE zat_client_parts)
target_compile_definitions(client_tests PRIVATE ZAT_FAKES="${CMAKE_BINARY_DIR}/tests/fake")
add_dependencies(client_tests fake_ms foreign_ms)
add_test(NAME ClientArchive COMMAND sh -c
  "names=$(nm -gC --defined-only $<TARGET_FILE:zat_client> | grep ' [A-Z] ') && ! echo \"$names\" | grep -v ' zat::\\(Till::\\|Amount::\\|name(\\)'")
set_tests_properties(ClientArchive PROPERTIES LABELS client)
