# The man pages and the completion of bash are where man and bash look for them.
foreach(file IN ITEMS "${MANDIR}/man1/qovctl.1" "${MANDIR}/man1/qov-endpoint.1"
                      "${MANDIR}/man1/qov-new.1" "${MANDIR}/man5/qovpub.cfg.5"
                      "${COMPLETIONS}/qovctl")
  if(NOT EXISTS "${file}")
    message(SEND_ERROR "not installed: ${file}")
  endif()
endforeach()
