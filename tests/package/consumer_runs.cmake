# Runs the consumer's agent with its module; both must say in the log that they started and ended.
set(root "${BUILD}/root")
file(REMOVE_RECURSE "${root}")
file(MAKE_DIRECTORY "${root}/log")
set(conf "${root}/conf/consumer_agent")
file(WRITE "${conf}/consumer_agent.cfg"
     "[QOV_GLOBAL]\nPROC_PID=1\n\n[LOG_CFG]\nSendTerminal=0\nChkInterval=600\n"
     "LogFileMaxSize=10240\nLogFileMaxCnt=3\nLogLevel=1\n")
file(WRITE "${conf}/consumer_module.mod" "")

set(ENV{QOV_ROOT} "${root}")
set(ENV{LD_LIBRARY_PATH} "${BUILD}:$ENV{LD_LIBRARY_PATH}")
execute_process(COMMAND "${BUILD}/consumer_agent" -n RESULT_VARIABLE status TIMEOUT 60)

set(log "")
if(EXISTS "${root}/log/consumer_agent.log")
  file(READ "${root}/log/consumer_agent.log" log)
endif()
foreach(wanted IN ITEMS "Successed to init module consumer_module!" "had shutdown.")
  string(FIND "${log}" "${wanted}" at)
  if(at EQUAL -1)
    message(SEND_ERROR "the log does not say \"${wanted}\"")
  endif()
endforeach()
if(NOT status STREQUAL "0")
  message(FATAL_ERROR "exit status ${status}; the log:\n${log}")
endif()
