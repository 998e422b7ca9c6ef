# A module as qov_add_module() makes it shows its entry function and none of its own classes or of a
# static library's functions (classes of ACE show themselves), and has no soname.
set(module "${BUILD}/libhello.so")
execute_process(COMMAND "${NM}" -D --defined-only --format=posix "${module}"
                OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
if(NOT symbols MATCHES "(^|\n)QOV_CreateModule T " OR symbols MATCHES "Hello|Greeter|shown_by")
  message(SEND_ERROR "${module} shows:\n${symbols}")
endif()
execute_process(COMMAND "${READELF}" -d "${module}" OUTPUT_VARIABLE dynamic
                COMMAND_ERROR_IS_FATAL ANY)
if(dynamic MATCHES "SONAME")
  message(SEND_ERROR "${module} has a soname:\n${dynamic}")
endif()
