# Without a configuration AGENT says so, in a line with the file and one with its name, and fails.
set(ENV{QOV_ROOT} "/nowhere")
execute_process(COMMAND "${AGENT}" -n RESULT_VARIABLE status ERROR_VARIABLE said TIMEOUT 60)
if(NOT status STREQUAL "1" OR NOT said MATCHES
                               "^Failed [^\n]*/nowhere/conf/[^\n]*: No such file[^\n]*\n[^\n]*cannot start: [^\n]*can't open proc config file\n$")
  message(FATAL_ERROR "exit status ${status}, and on standard error:\n${said}")
endif()
