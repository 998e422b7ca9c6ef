# Configures, builds and runs the program beside this file against the library in LIBRARY.
set(flags "")
if(SANITIZE)
  set(flags "-fsanitize=${SANITIZE}")
endif()
file(REMOVE_RECURSE "${BUILD}")
foreach(
  step
  "-S;${SOURCE};-B;${BUILD};-G;${GENERATOR};-DCMAKE_CXX_COMPILER=${COMPILER};-DCMAKE_CXX_FLAGS=${flags};-DQOV_TREE=${QOV_TREE};-DQOV_PLATFORM_LIBRARY=${LIBRARY};-DQOV_PLATFORM_INCLUDE_DIR=${INCLUDE}"
  "--build;${BUILD}")
  execute_process(COMMAND "${CMAKE_COMMAND}" ${step} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
execute_process(COMMAND "${BUILD}/swapped" OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
set(expected "monitor of 450 s\nguard of kind 5\ngate answers 513\nmonitor ends\n")
if(NOT output STREQUAL expected)
  message(FATAL_ERROR "the program wrote\n${output}instead of\n${expected}")
endif()
