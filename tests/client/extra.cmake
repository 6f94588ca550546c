# The client is tried as its users have it: the archive and the public header. The pieces inside serve the tables only.
target_link_libraries(client_tests PRIVATE zat_client_parts)
