# The tree that a shop has on its disk, made in the build directory:
#   BIN/            the object and the programs
#   micromgl.cfg    and the other configuration files
set(ZAT_BIN_DIR ${CMAKE_BINARY_DIR}/BIN)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${ZAT_BIN_DIR})
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${ZAT_BIN_DIR})

file(GLOB ZAT_CONFIGURATION CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/configuration/*.cfg)
foreach(file IN LISTS ZAT_CONFIGURATION)
  configure_file(${file} ${CMAKE_BINARY_DIR} COPYONLY)
endforeach()
