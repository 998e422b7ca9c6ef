# Installs the build tree BUILD to an empty PREFIX.
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}"
                COMMAND_ERROR_IS_FATAL ANY)
