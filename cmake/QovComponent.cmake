# qov_component(<name> SOURCES <file>... [USES <component>...] [BESIDE <component>...]
#               [LIBRARIES <target>...] [FOLDER <folder>])
#
# Adds one component to libqovpub. USES names the components below it whose headers it may include,
# BESIDE those of its own layer that it shares a cycle with; a test compares both with the includes it
# really has. FOLDER holds the sources, unless they stand beside the calling CMakeLists.txt: a folder
# with two components is visited for the lower one.
function(qov_component name)
  cmake_parse_arguments(ARG "" "FOLDER" "SOURCES;USES;BESIDE;LIBRARIES" ${ARGN})
  if(NOT ARG_FOLDER)
    set(ARG_FOLDER "${CMAKE_CURRENT_SOURCE_DIR}")
  endif()
  list(TRANSFORM ARG_SOURCES PREPEND "${ARG_FOLDER}/" OUTPUT_VARIABLE source_paths)
  add_library(qov_${name} OBJECT ${source_paths})
  target_include_directories(
    qov_${name} PUBLIC "${PROJECT_SOURCE_DIR}/agent/common/include" "${PROJECT_SOURCE_DIR}")
  target_link_libraries(qov_${name} PUBLIC qov::platform PkgConfig::ACE PkgConfig::JSONCPP
                                           Threads::Threads ${ARG_LIBRARIES}
                                    PRIVATE qov_compile_options)
  foreach(used IN LISTS ARG_USES)
    if(NOT TARGET qov_${used})
      message(FATAL_ERROR "component ${name} uses ${used}, which is not below it")
    endif()
  endforeach()
  target_sources(qovpub PRIVATE $<TARGET_OBJECTS:qov_${name}>)
  set_property(GLOBAL APPEND PROPERTY QOV_COMPONENTS ${name})
  set_property(GLOBAL PROPERTY QOV_COMPONENT_${name}_USES "${ARG_USES};${ARG_BESIDE}")
  set_property(GLOBAL PROPERTY QOV_COMPONENT_${name}_FOLDER "${ARG_FOLDER}")
  set_property(GLOBAL PROPERTY QOV_COMPONENT_${name}_SOURCES "${ARG_SOURCES}")
endfunction()
