# The Python module against the object and the simulated terminal; a class of cases each, so that those which wait for
# the library's own limits run beside the others. An object with sanitizers cannot be loaded into a Python without them.
find_package(Python3 3.11 REQUIRED COMPONENTS Interpreter)
find_program(ZAT_MYPY mypy)

set(python_environment PYTHONPATH=${CMAKE_SOURCE_DIR}/bindings/python:${folder} PYTHONDONTWRITEBYTECODE=1 PYTHONUTF8=1
    ZAT_BUILD=${CMAKE_BINARY_DIR})
function(add_python_test name)
  add_test(NAME ${name} COMMAND ${ARGN} WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  set_tests_properties(${name} PROPERTIES LABELS python TIMEOUT 120 ENVIRONMENT "${python_environment}")
endfunction()

if(NOT ZAT_SANITIZE)
  foreach(class Payments Breaks Losses Together Tables)
    add_python_test(Python.${class} ${Python3_EXECUTABLE} -m unittest test_till.${class})
  endforeach()
endif()
add_python_test(Python.Layouts ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/bindings/python/layouts.py
  $<TARGET_FILE:zat_tool> --check)
if(ZAT_MYPY)
  add_python_test(Python.Types ${ZAT_MYPY} --strict --no-error-summary --cache-dir ${CMAKE_BINARY_DIR}/mypy
    ${CMAKE_SOURCE_DIR}/bindings/python ${CMAKE_SOURCE_DIR}/examples/python ${folder})
endif()
