# One set of flags for every object of the project, because the shared object and the tests use the same ones.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wcast-qual -Wundef -Werror)
add_compile_definitions(_GNU_SOURCE)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # A unique symbol pins the object that defines it in memory: dlclose would never unload it.
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fno-gnu-unique>)
  # g++ 12 warns about its own std::string when "text" + std::string is inlined (GCC bug 105329).
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()

if(ZAT_CHECK)
  # The lines of the source, by which the measurements of trust tell from where the system is called.
  add_compile_options($<$<CONFIG:Release>:-g1>)
endif()

option(ZAT_SANITIZE "Address and undefined-behaviour sanitizers" OFF)
if(ZAT_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# What libFuzzer needs of the code that it drives: every branch counted, and the sanitizers to notice what goes wrong.
option(ZAT_FUZZ "Build the fuzzer (needs clang)" OFF)
if(ZAT_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -O1)
  add_link_options(-fsanitize=address,undefined)
endif()

# Counts every line and branch that runs; atomically, because hosts have threads.
option(ZAT_COVERAGE "Count what the tests reach" OFF)
if(ZAT_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic -fprofile-abs-path)
  add_link_options(--coverage)
endif()
