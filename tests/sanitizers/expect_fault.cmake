# Runs PROGRAM with the tests' own sanitizer options, except that its report goes to standard error,
# and expects it to fail with EXPECTED.
foreach(kind ASAN UBSAN TSAN)
  set(ENV{${kind}_OPTIONS} "$ENV{${kind}_OPTIONS}:log_path=stderr")
endforeach()
execute_process(COMMAND "${PROGRAM}" RESULT_VARIABLE status ERROR_VARIABLE report
                OUTPUT_VARIABLE ignored)
if(status EQUAL 0 OR NOT report MATCHES "${EXPECTED}")
  message(FATAL_ERROR "exit status ${status}, and no \"${EXPECTED}\" in:\n${report}")
endif()
