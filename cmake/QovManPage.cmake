# qov_man_page(<name> <section> PAGE <file> BRIEF <text> [SYNOPSIS <text>] [SEE <text>]
#              [WITHOUT <heading>])
#
# Makes a man page of a page of docs/, and installs it. BRIEF is what whatis(1) shows; SYNOPSIS and SEE
# are in the Markdown of the pages; a "+" begins a new line of the synopsis. What stands under the heading
# WITHOUT is left out.
find_program(QOV_AWK awk REQUIRED)

function(qov_man_page name section)
  cmake_parse_arguments(ARG "" "PAGE;BRIEF;SYNOPSIS;SEE;WITHOUT" "" ${ARGN})
  set(writer "${PROJECT_SOURCE_DIR}/cmake/man_page.awk")
  set(man_page "${CMAKE_CURRENT_BINARY_DIR}/${name}.${section}")
  add_custom_command(
    OUTPUT "${man_page}"
    COMMAND
      "${CMAKE_COMMAND}" -E env LC_ALL=C "${QOV_AWK}" -v "name=${name}" -v section=${section} -v version=${PROJECT_VERSION} -v
      "brief=${ARG_BRIEF}" -v "synopsis=${ARG_SYNOPSIS}" -v "see=${ARG_SEE}" -v
      "without=${ARG_WITHOUT}" -f "${writer}" "${ARG_PAGE}" > "${man_page}"
    DEPENDS "${writer}" "${ARG_PAGE}"
    VERBATIM)
  add_custom_target(man_${name} ALL DEPENDS "${man_page}")
  set_property(GLOBAL APPEND PROPERTY QOV_MAN_PAGES "${man_page}")
  qov_install(FILES "${man_page}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}")
endfunction()
