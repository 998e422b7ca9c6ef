# qov_fuzzer(<name> [INSIDE] SOURCES <file>... [LIBRARIES <target>...])
#
# The program fuzz_<name>, of sources with one LLVMFuzzerTestOneInput(), and the test fuzz.<name>:
# it gives the program all inputs below fuzz/<name> of the calling folder, in corpus and regressions,
# and with AddressSanitizer two seconds of altered ones, the same each time. INSIDE is as for
# qov_test().
#
# With QOV_FUZZ it is libFuzzer's program, and the whole tree is compiled for it. Without, any
# compiler makes one with tests/support/replay.cpp in its place.
if(QOV_FUZZ AND NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  message(FATAL_ERROR "QOV_FUZZ needs clang, and the compiler is ${CMAKE_CXX_COMPILER}")
endif()

# What endure/fuzz builds.
add_custom_target(fuzzers)

function(qov_fuzzer name)
  cmake_parse_arguments(ARG "INSIDE" "" "SOURCES;LIBRARIES" ${ARGN})
  set(library qov::qovpub)
  if(ARG_INSIDE)
    set(library qov_inside)
  endif()
  set(program fuzz_${name})
  add_executable(${program} ${ARG_SOURCES})
  # As the tests': the process name ends at the last dot of the program's path.
  set_target_properties(${program} PROPERTIES SUFFIX ".bin" RUNTIME_OUTPUT_DIRECTORY
                                              "${PROJECT_BINARY_DIR}/fuzzers")
  target_include_directories(${program} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${program} PRIVATE ${library} qov_compile_options ${ARG_LIBRARIES})
  if(QOV_FUZZ)
    target_link_options(${program} PRIVATE -fsanitize=fuzzer)
  else()
    target_sources(${program} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/replay.cpp")
  endif()
  add_dependencies(fuzzers ${program})
  set(options -runs=0)
  if(QOV_SANITIZE MATCHES "address" AND NOT QOV_FUZZ)
    set(options -max_total_time=2 -seed=1)
  endif()
  add_test(NAME fuzz.${name} COMMAND ${program} ${options} "${CMAKE_CURRENT_SOURCE_DIR}/fuzz/${name}")
  set_tests_properties(fuzz.${name} PROPERTIES TIMEOUT 120 ${QOV_SANITIZER_FIXTURE})
endfunction()
