# libqovpub.so -> libqovpub.so.<major> -> libqovpub.so.<version>, whose SONAME is the middle one and
# which finds the platform library beside itself.
set(library "${PREFIX}/${LIBDIR}/libqovpub.so")
foreach(link IN ITEMS "${library}" "${library}.${MAJOR}")
  if(NOT IS_SYMLINK "${link}")
    message(FATAL_ERROR "${link} is no symbolic link")
  endif()
endforeach()
if(NOT EXISTS "${library}.${VERSION}" OR IS_SYMLINK "${library}.${VERSION}")
  message(FATAL_ERROR "${library}.${VERSION} is no file")
endif()
execute_process(COMMAND "${READELF}" -d "${library}" OUTPUT_VARIABLE dynamic
                COMMAND_ERROR_IS_FATAL ANY)
foreach(wanted IN ITEMS "soname: \\[libqovpub\\.so\\.${MAJOR}\\]" "R(UN)?PATH\\)[^\n]*\\[\\$ORIGIN\\]")
  if(NOT dynamic MATCHES "${wanted}")
    message(FATAL_ERROR "no ${wanted} in:\n${dynamic}")
  endif()
endforeach()
