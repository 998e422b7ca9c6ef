# qov_test(<name> [INSIDE] SOURCES <file>... [LIBRARIES <target>...] [LABELS <label>...]
#          [TIMEOUT <s>])
#
# One GoogleTest program. With INSIDE it may include private headers, from the root of the tree, and
# is made of the components' objects in place of libqovpub. The modules that it opens link
# qov_headers and find the library in the program, which has ENABLE_EXPORTS for that.
find_package(GTest REQUIRED)
include(GoogleTest)

# With a sanitizer every test belongs to the fixture that looks for reports (tests/sanitizers).
set(QOV_SANITIZER_FIXTURE)
if(QOV_SANITIZE)
  set(QOV_SANITIZER_FIXTURE FIXTURES_REQUIRED sanitizer_reports)
endif()

# Test code is not optimised: that would take longer to compile than all else, most of all with the
# sanitizers' instrumentation in it.
function(qov_test_options name)
  target_compile_options(${name} PRIVATE "$<$<CONFIG:RelWithDebInfo>:-O0;-g1>")
  target_link_libraries(${name} PRIVATE qov_compile_options GTest::gmock GTest::gtest
                                        GTest::gtest_main)
  if(QOV_TESTS_AT_ONCE)
    target_link_libraries(${name} PRIVATE qov_unity_options)
  endif()
endfunction()

# For a build from nothing: tests are compiled several files at a time, and what most of them include
# once for all. The owner of that is a program, since the compiler takes it only where it has the same
# options. An include that a test forgets is found by a build without this alone.
option(QOV_TESTS_AT_ONCE "Compile tests in batches, with precompiled headers" OFF)
if(QOV_TESTS_AT_ONCE)
  file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/test_headers.cpp" CONTENT "")
  add_executable(qov_test_headers EXCLUDE_FROM_ALL "${PROJECT_BINARY_DIR}/test_headers.cpp")
  qov_test_options(qov_test_headers)
  target_precompile_headers(
    qov_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h> <atomic> <chrono> <filesystem> <fstream>
                             <functional> <memory> <string> <thread> <vector>)
endif()

function(qov_test name)
  cmake_parse_arguments(ARG "INSIDE" "TIMEOUT" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  set(properties TIMEOUT ${ARG_TIMEOUT} ${QOV_SANITIZER_FIXTURE})
  set(library qov::qovpub)
  if(ARG_INSIDE)
    set(library qov_inside)
  endif()
  if(ARG_LABELS)
    list(APPEND properties LABELS "${ARG_LABELS}")
  endif()
  add_executable(${name} ${ARG_SOURCES})
  # A program's process name ends at the last dot of its path, which may lie in a folder's name.
  set_target_properties(${name} PROPERTIES SUFFIX ".bin")
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE ${library} ${ARG_LIBRARIES})
  qov_test_options(${name})
  if(QOV_TESTS_AT_ONCE)
    target_precompile_headers(${name} REUSE_FROM qov_test_headers)
    set_target_properties(${name} PROPERTIES UNITY_BUILD ON)
  endif()
  gtest_discover_tests(
    ${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES ${properties})
endfunction()
