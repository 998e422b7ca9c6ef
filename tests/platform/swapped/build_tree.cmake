# Configures the tree with the platform library in LIBRARY, tests and all, and compiles what
# stands on the guards and asks the gate for the node id.
execute_process(
  COMMAND
    "${CMAKE_COMMAND}" -S "${SOURCE}" -B "${BUILD}" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${COMPILER}" "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}"
    -DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS_DEBUG=-O0" "-DQOV_PLATFORM_LIBRARY=${LIBRARY}"
    "-DQOV_PLATFORM_INCLUDE_DIR=${INCLUDE}" COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${BUILD}" --target help OUTPUT_VARIABLE targets
                        COMMAND_ERROR_IS_FATAL ANY)
if(targets MATCHES "tests_platform")
  message(FATAL_ERROR "the stand-in's own tests are part of a build that has no stand-in")
endif()
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${BUILD}" --target qov_frame_env qov_frame_app
                        COMMAND_ERROR_IS_FATAL ANY)
