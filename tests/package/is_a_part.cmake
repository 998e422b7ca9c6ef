# A project in folder BUILD has the tree QOVPUB as a part. Whether the part keeps to itself is seen when
# it is configured (subproject/CMakeLists.txt). Compiled are the platform library, which is linked from
# there, and the module HELLO; not the rest of the library, which would take minutes: its commands are
# looked at.
function(configure)
  execute_process(
    COMMAND "${CMAKE_COMMAND}" -S "${SOURCE}" -B "${BUILD}" -G Ninja "-DQOVPUB=${QOVPUB}"
            "-DCMAKE_CXX_COMPILER=${COMPILER}" "-DHELLO=${HELLO}" "-DASKED_FOR=" ${ARGN}
    COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Installs what folder <part> of the library has to install. Sets `installed`.
function(install_part part)
  file(REMOVE_RECURSE "${BUILD}/prefix")
  execute_process(COMMAND "${CMAKE_COMMAND}" "-DCMAKE_INSTALL_PREFIX=${BUILD}/prefix" -P
                          "${BUILD}/qovpub/${part}/cmake_install.cmake" COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB_RECURSE files RELATIVE "${BUILD}/prefix" "${BUILD}/prefix/*")
  set(installed "${files}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE "${BUILD}")
configure()
file(READ "${BUILD}/compile_commands.json" commands)
if(NOT commands MATCHES "msg/qov_msg_cell.cpp" OR commands MATCHES "-Werror|[ \"](-O|-g)")
  message(FATAL_ERROR "the library is compiled with options that its parent did not ask for")
endif()

execute_process(
  COMMAND "${CMAKE_COMMAND}" --build "${BUILD}" --target guarded CMakeFiles/hello.dir/module.cpp.o
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${BUILD}/guarded" COMMAND_ERROR_IS_FATAL ANY)
install_part(platform)
if(NOT installed MATCHES "libqovplatform.so")
  message(FATAL_ERROR "installed is only: ${installed}")
endif()

configure(-DFETCHED=ON -DQOV_INSTALL=OFF -DQOV_BUILD_EXAMPLES=ON -DQOV_BUILD_TOOLS=ON
          "-DASKED_FOR=devagent qovctl man_qovctl")
install_part(.)
if(installed)
  message(FATAL_ERROR "installed, though nothing shall be: ${installed}")
endif()
