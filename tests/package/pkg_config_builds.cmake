# A module built with nothing but what pkg-config says about the installed copy.
set(ENV{PKG_CONFIG_PATH} "${PREFIX}/${LIBDIR}/pkgconfig")
execute_process(COMMAND "${PKG_CONFIG}" --cflags --libs qovpub
                OUTPUT_VARIABLE said OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(arguments UNIX_COMMAND "${FLAGS} ${said}")
execute_process(COMMAND "${COMPILER}" -std=c++17 -fPIC -shared "${SOURCE}" -o "${OUTPUT}"
                        ${arguments}
                COMMAND_ERROR_IS_FATAL ANY)
