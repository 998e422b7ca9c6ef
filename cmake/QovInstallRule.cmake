# qov_install(<argument of install()>...)
#
# install(), unless QOV_INSTALL is off: a parent project may ship what it builds by its own rules.
function(qov_install)
  if(QOV_INSTALL)
    install(${ARGN})
  endif()
endfunction()
