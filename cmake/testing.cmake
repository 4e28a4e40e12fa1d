# How test code is built and how tests are run.

# Test code is compiled once and run for a moment: what counts is how fast it compiles. A fault of it
# would be in memory; the arithmetic that the other sanitizer looks at is the library's.
macro(compile_for_tests)
  add_compile_options(-O0 -g1 -U_FORTIFY_SOURCE)
  if(QAVEN_COVERAGE)
    add_compile_options(-fno-profile-arcs -fno-test-coverage)
  endif()
  if(QAVEN_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize=undefined)
  endif()
endmacro()

# What nearly every test includes, compiled once: with it a file of tests compiles in half the time.
function(precompile_for_tests)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/precompiled.cpp "int main() {}\n")
  add_executable(qaven-precompiled EXCLUDE_FROM_ALL ${CMAKE_CURRENT_BINARY_DIR}/precompiled.cpp)
  target_link_libraries(qaven-precompiled PRIVATE qaven_warnings GTest::gtest GTest::gmock)
  target_precompile_headers(qaven-precompiled PRIVATE
    <gmock/gmock.h> <gtest/gtest.h>
    <algorithm> <array> <cstdint> <cstdio> <cstdlib> <cstring> <filesystem> <fstream> <functional>
    <map> <memory> <optional> <span> <sstream> <string> <string_view> <thread> <utility> <vector>)
endfunction()

# measured_test(NAME name [SECONDS n] COMMAND program|target argument...): a test that fails when it
# takes more processor time than these seconds (default: 10), or than eight times as many in a build
# that is not optimised.
function(measured_test)
  cmake_parse_arguments(PARSE_ARGV 0 test "" "NAME;SECONDS" "COMMAND")
  if(NOT test_SECONDS)
    set(test_SECONDS 10)
  endif()
  if(NOT QAVEN_HARDENED)
    math(EXPR test_SECONDS "${test_SECONDS} * 8")
  endif()
  list(POP_FRONT test_COMMAND program)
  if(TARGET ${program})
    set(program ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${program}>)
  endif()
  add_test(NAME ${test_NAME}
    COMMAND ${PROJECT_SOURCE_DIR}/tools/measured ${test_SECONDS} ${program} ${test_COMMAND})
endfunction()

# suite(target label [SECONDS n]): all tests of a GoogleTest program in one process, which takes a
# fraction of the time of a process each.
function(suite target label)
  target_precompile_headers(${target} REUSE_FROM qaven-precompiled)
  measured_test(NAME ${label} ${ARGN} COMMAND ${target})
  set_tests_properties(${label} PROPERTIES LABELS ${label} TIMEOUT 300)
endfunction()
