# The shapes of target this project has: a folder that is a library, a program, a test program.

find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
find_package(GTest REQUIRED)

add_library(halvo-flags INTERFACE)
target_compile_options(halvo-flags INTERFACE
  -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Werror -Wno-missing-field-initializers)
# g++ 12 sees at -O3 what is not there: an overlap in the standard library's own operator+ for strings, and the value of an empty optional
# read when an argument is unwound. What is read before it is written shows in the other builds, which keep the warning.
target_compile_options(halvo-flags INTERFACE
  "$<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-Wno-restrict;-Wno-maybe-uninitialized>")
target_include_directories(halvo-flags INTERFACE ${CMAKE_SOURCE_DIR})
target_link_libraries(halvo-flags INTERFACE Threads::Threads fmt::fmt)

set(HALVO_SANITIZE "" CACHE STRING "sanitizers for every target, as in address,undefined")
if(HALVO_SANITIZE)
  target_compile_options(halvo-flags INTERFACE -fsanitize=${HALVO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all
    # With its checks between the lines g++ 12 no longer sees that a value is set.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(halvo-flags INTERFACE -fsanitize=${HALVO_SANITIZE})
endif()

find_program(HALVO_MOLD mold)
if(HALVO_MOLD)
  target_link_options(halvo-flags INTERFACE -fuse-ld=mold)
endif()
find_program(HALVO_CCACHE ccache)
if(HALVO_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${HALVO_CCACHE})
endif()

# halvo_library(name [DEPS target...]): every .cpp of the current folder as one static library "halvo-<name>".
function(halvo_library name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(sources)
    add_library(halvo-${name} STATIC ${sources})
    target_link_libraries(halvo-${name} PUBLIC halvo-flags ${ARG_DEPS})
  else()
    add_library(halvo-${name} INTERFACE)
    target_link_libraries(halvo-${name} INTERFACE halvo-flags ${ARG_DEPS})
  endif()
endfunction()

# halvo_program(name SOURCES file... [DEPS target...]): one executable in <build>/bin.
function(halvo_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE halvo-flags ${ARG_DEPS})
endfunction()

# halvo_tests(name LABEL unit|process|desktop [TIMEOUT sec] [DEPS target...]): every *Tests.cpp of the current folder as the
# test program "test-<name>", one ctest entry. The zone and the locale are fixed, so that a time prints alike everywhere.
function(halvo_tests name)
  cmake_parse_arguments(ARG "" "LABEL;TIMEOUT" "DEPS;NEEDS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*Tests.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(test-${name} ${sources})
  target_link_libraries(test-${name} PRIVATE halvo-flags GTest::gtest GTest::gtest_main ${ARG_DEPS})
  target_compile_definitions(test-${name} PRIVATE HALVO_TEST_DATA="${CMAKE_SOURCE_DIR}/tests/data" HALVO_BIN="${CMAKE_BINARY_DIR}/bin")
  if(ARG_NEEDS)
    add_dependencies(test-${name} ${ARG_NEEDS})
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_test(NAME ${name} COMMAND test-${name})
  set_tests_properties(${name} PROPERTIES LABELS ${ARG_LABEL} TIMEOUT ${ARG_TIMEOUT}
    ENVIRONMENT "TZ=America/New_York;LC_ALL=C.UTF-8")
endfunction()

# Adds every sub-folder that has a CMakeLists.txt, in the order given.
function(halvo_subfolders)
  foreach(folder ${ARGN})
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/CMakeLists.txt)
      add_subdirectory(${folder})
    endif()
  endforeach()
endfunction()
