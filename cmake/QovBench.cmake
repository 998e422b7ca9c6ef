# qov_bench(<name> SOURCES <file>...)
#
# One program of bench/ (see bench/table.h); a tiny run of it is a test.
find_package(benchmark REQUIRED)

function(qov_bench name)
  cmake_parse_arguments(ARG "" "" "SOURCES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  # As the tests': the process name ends at the last dot of the program's path.
  set_target_properties(${name} PROPERTIES SUFFIX ".bin")
  target_link_libraries(${name} PRIVATE qov_bench_table qov::qovpub qov_compile_options)
  if(QOV_BUILD_TESTS)
    add_test(NAME ${name} COMMAND ${name} --benchmark_min_time=0.001 --benchmark_repetitions=1)
    set_tests_properties(${name} PROPERTIES LABELS bench TIMEOUT 600
      ENVIRONMENT QOV_BENCH_SHORT=1 ${QOV_SANITIZER_FIXTURE})
  endif()
endfunction()
