# The Debian packages, one a component, made by cpack. Version, maintainer and date come from debian/changelog.
file(STRINGS debian/changelog newest LIMIT_COUNT 1)
file(STRINGS debian/changelog trailer REGEX "^ -- " LIMIT_COUNT 1)
if(NOT newest MATCHES "^zat-ms \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "packaging/debian/changelog begins with '${newest}', the project has version ${PROJECT_VERSION}")
endif()
string(REGEX REPLACE "^ -- (.*>)  .*$" "\\1" CPACK_PACKAGE_CONTACT "${trailer}")

cmake_path(ABSOLUTE_PATH root BASE_DIRECTORY /usr) # scripts and dpkg take absolute names alone
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zat-ms)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_SET_DESTDIR ON) # the installation lies outside the prefix
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${everybody})
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON) # of the same version
set(CPACK_COMPONENTS_ALL)

# zat_package(COMPONENT NAME SUMMARY DESCRIPTION [CONTROL FILES] [CONFFILES])
#   CONTROL    scripts of debian/<NAME>.*
#   CONFFILES  files in the installation's directory that belong to the administrator
function(zat_package component name summary description)
  cmake_parse_arguments(its "" "" "CONTROL;CONFFILES" ${ARGN})
  set(control ${its_CONTROL})
  list(TRANSFORM control REPLACE "(.+)" "debian/${name}.\\1.in" OUTPUT_VARIABLE sources)
  foreach(source script IN ZIP_LISTS sources control)
    configure_file(${source} ${name}/${script} @ONLY FILE_PERMISSIONS ${everybody})
  endforeach()
  if(its_CONFFILES)
    list(TRANSFORM its_CONFFILES PREPEND ${root}/)
    list(JOIN its_CONFFILES "\n" lines)
    file(CONFIGURE OUTPUT ${name}/conffiles CONTENT "${lines}\n")
    list(APPEND control conffiles)
  endif()
  list(TRANSFORM control PREPEND ${made}/${name}/)

  string(TOUPPER ${component} id)
  set(CPACK_DEBIAN_${id}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${id}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${id}_PACKAGE_CONTROL_EXTRA ${control} PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)

  # What every package of Debian has: where it comes from, what changed. And why ours lies where it does.
  install(FILES debian/copyright DESTINATION share/doc/${name} COMPONENT ${component})
  install(FILES ${made}/changelog.gz DESTINATION share/doc/${name} COMPONENT ${component})
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/${name}.lintian-overrides)
    install(FILES debian/${name}.lintian-overrides DESTINATION share/lintian/overrides RENAME ${name}
            COMPONENT ${component})
  endif()
endfunction()
zat_gzip(${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog)

zat_package(runtime zat-ms "card payments for a cash desk"
"A till loads libzat_ms.so and takes card payments through three C functions.
The object starts the terminal module as a child process, hands it each
request and gives the till one answer per call. Downloaded updates install
themselves.

This is the installation in ${root}: the object, the updater and the
settings. The users whose tills work with it belong into the group zat_ms.
The terminal module comes with the terminal, or simulated in
zat-ms-simulator."
  CONTROL postinst postrm CONFFILES micromgl.cfg eftpos.cfg)
zat_package(simulator zat-ms-simulator "simulated terminal module for card payments"
"The terminal module that a till works against while it is being written: it
answers every request as a card terminal would, without a card, a host or
money. The amount chooses how a payment ends, a file makes the module late,
silent or broken."
  CONTROL postrm CONFFILES simulator.cfg)
zat_package(tools zat-ms-tools "card payments on the command line, and tools for support"
"zat_till is a cash desk on the command line: sales, refunds, reversals, the
end of the day.

zat_tool is for those who look after tills: it examines an installation,
tells the log as exchanges, hides card numbers, takes messages apart and
builds them.")
zat_package(development zat-ms-dev "card payments for a cash desk - development files"
"What a till is built with: the C header of the three functions, the typed
client for C++, the header of the link facility, a CMake package and
pkg-config files.")
zat_package(python python3-zat-ms "card payments for a cash desk - module for Python"
"A till in Python takes card payments through libzat_ms.so: requests as
iterators of events, amounts and outcomes as values, receipts as text. It
needs nothing but the standard library."
  CONTROL postinst prerm)
zat_package(documentation zat-ms-doc "card payments for a cash desk - documentation"
"Manual pages, completion for bash, and documents on running an installation,
on updates and on the messages.")

set(CPACK_COMPONENT_SIMULATOR_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "passwd, acl")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS zat-ms-tools)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS "zat-ms-simulator, zat-ms-doc")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "zat-ms-simulator, zat-ms-doc")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.11)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)

include(CPack)
