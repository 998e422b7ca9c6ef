# No installed text names the build or source tree, a warning flag, a sanitizer, or a target that
# only the build has.
file(GLOB_RECURSE texts "${PREFIX}/*.cmake" "${PREFIX}/*.pc" "${PREFIX}/*.h")
if(NOT texts)
  message(FATAL_ERROR "nothing is installed below ${PREFIX}")
endif()
foreach(file IN LISTS texts)
  file(READ "${file}" text)
  # The prefix itself lies in the build tree here.
  string(REPLACE "${PREFIX}" "" text "${text}")
  foreach(leak IN ITEMS "${BUILD}" "${SOURCE}" "-Wall" "-Werror" "-fsanitize" "qov_compile_options"
                        "PkgConfig::SAFEC" "OpenSSL::")
    string(FIND "${text}" "${leak}" at)
    if(NOT at EQUAL -1)
      message(SEND_ERROR "${file} mentions ${leak}")
    endif()
  endforeach()
endforeach()
