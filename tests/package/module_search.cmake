# The installed qovctl searches modules where ACE's calls look for them, which is not the tool's own
# folder of libraries.
unset(ENV{LD_LIBRARY_PATH})
set(root "${CMAKE_CURRENT_BINARY_DIR}/searched")
file(WRITE "${root}/conf/agent/agent.cfg" "[QOV_GLOBAL]\nPROC_PID=1\n[LOG_CFG]\nSendTerminal=0\nChkInterval=600\n\
LogFileMaxSize=10240\nLogFileMaxCnt=3\nLogLevel=2\n")
file(WRITE "${root}/conf/agent/qovpub.mod" "")
file(MAKE_DIRECTORY "${root}/log")
execute_process(COMMAND "${BINDIR}/qovctl" check --root "${root}"
                ERROR_VARIABLE printed RESULT_VARIABLE status TIMEOUT 60)
file(REMOVE_RECURSE "${root}")
if(NOT status STREQUAL "2" OR NOT printed MATCHES
   "qovpub.mod: none of libqovpub.so, qovpub.so, qovpub is in LD_LIBRARY_PATH [(]not set[)]")
  message(FATAL_ERROR "exit status ${status}; it printed:\n${printed}")
endif()
