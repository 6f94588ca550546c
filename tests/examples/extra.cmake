# The examples are built as their users do it, only that the package they find is this build.
set(zat_ms_DIR ${CMAKE_CURRENT_BINARY_DIR}/package)
file(WRITE ${zat_ms_DIR}/zat_msConfig.cmake "# the targets are those of the build\n")
add_library(zat_ms::zat_ms INTERFACE IMPORTED GLOBAL)
target_include_directories(zat_ms::zat_ms INTERFACE ${CMAKE_SOURCE_DIR}/include)
target_link_libraries(zat_ms::zat_ms INTERFACE zat_ms)
foreach(language IN ITEMS c cpp)
  add_subdirectory(${CMAKE_SOURCE_DIR}/examples/${language} examples/${language})
  set_target_properties(till_${language} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
endforeach()
# the oldest languages that the public headers promise
set_target_properties(till_c PROPERTIES C_STANDARD 99 C_EXTENSIONS OFF)
set_target_properties(till_cpp PROPERTIES CXX_STANDARD 17)
add_dependencies(examples_tests till_c till_cpp zat_ms zat_mm)
