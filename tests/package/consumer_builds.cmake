# Configures and builds the consumer from scratch, with the installed copy at PREFIX, which asks for a
# later standard than the consumer does.
file(REMOVE_RECURSE "${BUILD}")
execute_process(
  COMMAND "${CMAKE_COMMAND}" -S "${SOURCE}" -B "${BUILD}" -G "${GENERATOR}"
          "-DCMAKE_CXX_COMPILER=${COMPILER}" "-DCMAKE_CXX_FLAGS=${FLAGS}" "-DCMAKE_CXX_STANDARD=14"
          "-DCMAKE_PREFIX_PATH=${PREFIX}" "-DREADME_CODE=${README_CODE}"
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${BUILD}" COMMAND_ERROR_IS_FATAL ANY)
