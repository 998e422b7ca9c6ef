# Without a configuration AGENT says so in one line and fails.
set(ENV{QOV_ROOT} "/nowhere")
execute_process(COMMAND "${AGENT}" -n RESULT_VARIABLE status ERROR_VARIABLE said TIMEOUT 60)
if(NOT status STREQUAL "1" OR NOT said MATCHES
                               "^[^\n]*cannot start: [^\n]*can't open proc config file\n$")
  message(FATAL_ERROR "exit status ${status}, and on standard error:\n${said}")
endif()
