# Runs the installed qovctl without a hint where the library is: it must find the installed one.
unset(ENV{LD_LIBRARY_PATH})
execute_process(
  COMMAND "${BINDIR}/qovctl" decode --text
          "55555555 03000000 00000000 ffffffff fdffffff ffffffff 00000000"
  OUTPUT_VARIABLE printed RESULT_VARIABLE status TIMEOUT 60)
if(NOT status STREQUAL "0" OR NOT printed MATCHES "^{\nRET=0\nSSK=")
  message(FATAL_ERROR "exit status ${status}; it printed:\n${printed}")
endif()
