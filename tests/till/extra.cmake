# The cash desk is tried as a user runs it: the program itself, with a library that plays a script.
add_library(fake_ms MODULE ${folder}/fake/fake_ms.cpp)
target_include_directories(fake_ms PRIVATE ${CMAKE_SOURCE_DIR}/include)
add_library(foreign_ms MODULE ${folder}/fake/foreign.cpp)
set_target_properties(fake_ms foreign_ms PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests/fake)
add_dependencies(till_tests zat_till zat_ms zat_mm fake_ms foreign_ms)
target_link_libraries(till_tests PRIVATE util)
target_compile_definitions(till_tests PRIVATE ZAT_FAKES="${CMAKE_BINARY_DIR}/tests/fake")

# The public header must compile where tills are written in older languages than this project.
add_library(zat_ms_header OBJECT ${folder}/fake/header.c ${folder}/fake/header.cpp)
target_include_directories(zat_ms_header PRIVATE ${CMAKE_SOURCE_DIR}/include)
set_target_properties(zat_ms_header PROPERTIES C_STANDARD 99 C_EXTENSIONS OFF CXX_STANDARD 11)
