# Runs the consumer's program that hides all it has, and so does the library that it is linked with.
execute_process(COMMAND "${BUILD}/types_meet" COMMAND_ERROR_IS_FATAL ANY)
