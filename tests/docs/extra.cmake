# Every command and every fragment of code that the documents show, a document each.
find_package(Python3 3.11 REQUIRED COMPONENTS Interpreter)
file(GLOB documents CONFIGURE_DEPENDS RELATIVE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/*.md ${CMAKE_SOURCE_DIR}/docs/*.md)
if(ZAT_SANITIZE) # the fragments are built without sanitizers, and could not load an object with them
  set(documents "")
endif()
foreach(document IN LISTS documents)
  cmake_path(GET document STEM name)
  add_test(NAME Docs.${name}
    COMMAND ${Python3_EXECUTABLE} ${folder}/run.py ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR} ${document})
  set_tests_properties(Docs.${name} PROPERTIES LABELS docs TIMEOUT 120)
endforeach()
