# Runs the consumer's agent with its modules: the one must get the answer of the other, and not that
# of the other's copy.

# The agent takes its name from its path, and an earlier dot anywhere in that path would cut it
# short: it runs from a directory without one.
string(RANDOM LENGTH 8 suffix)
set(root "/tmp/qov_package_${suffix}")
file(MAKE_DIRECTORY "${root}/log")
file(COPY "${BUILD}/consumer_agent" DESTINATION "${root}/bin")
set(conf "${root}/conf/consumer_agent")
file(WRITE "${conf}/consumer_agent.cfg"
     "[QOV_GLOBAL]\nPROC_PID=1\n\n[LOG_CFG]\nSendTerminal=0\nChkInterval=600\n"
     "LogFileMaxSize=10240\nLogFileMaxCnt=3\nLogLevel=1\n")
file(WRITE "${conf}/hello.mod" "")
file(WRITE "${conf}/copy.mod" "")
file(WRITE "${conf}/asker.mod" "")

set(ENV{QOV_ROOT} "${root}")
set(ENV{LD_LIBRARY_PATH} "${BUILD}:$ENV{LD_LIBRARY_PATH}")
execute_process(COMMAND "${root}/bin/consumer_agent" -n RESULT_VARIABLE status TIMEOUT 60)

set(log "")
if(EXISTS "${root}/log/consumer_agent.log")
  file(READ "${root}/log/consumer_agent.log" log)
endif()
file(REMOVE_RECURSE "${root}")

foreach(wanted IN ITEMS "got hello" "had shutdown.")
  string(FIND "${log}" "${wanted}" at)
  if(at EQUAL -1)
    message(SEND_ERROR "the log does not say \"${wanted}\"")
  endif()
endforeach()
if(log MATCHES "runs code of another module")
  message(SEND_ERROR "modules share classes; the log:\n${log}")
endif()
if(NOT status STREQUAL "0")
  message(FATAL_ERROR "exit status ${status}; the log:\n${log}")
endif()
