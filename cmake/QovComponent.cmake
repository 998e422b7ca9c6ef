# What code is compiled with that includes the public headers, and all that a module needs: it finds
# the library in the program that opens it.
add_library(qov_headers INTERFACE)
target_include_directories(qov_headers INTERFACE "${PROJECT_SOURCE_DIR}/agent/common/include")
target_link_libraries(qov_headers INTERFACE qov::platform PkgConfig::ACE PkgConfig::JSONCPP
                                            Threads::Threads)

# The components' objects, in place of libqovpub, for programs of this tree that use what the library
# hides. Never both in one process: it would have two copies of the library's state.
add_library(qov_inside INTERFACE)
target_include_directories(qov_inside INTERFACE "${PROJECT_SOURCE_DIR}")
target_link_libraries(qov_inside INTERFACE qov_headers)

# qov_component(<name> SOURCES <file>... [USES <component>...] [BESIDE <component>...]
#               [LIBRARIES <target>...])
#
# Adds one component to libqovpub. USES names the components below it whose headers it may include,
# BESIDE those of its own layer that it shares a cycle with; a test compares both with the includes it
# really has. Its folder is that of the calling CMakeLists.txt.
function(qov_component name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;BESIDE;LIBRARIES" ${ARGN})
  add_library(qov_${name} OBJECT ${ARG_SOURCES})
  # Shown is what QOV_EXPORT marks.
  set_target_properties(qov_${name} PROPERTIES CXX_VISIBILITY_PRESET hidden
                                               VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(qov_${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(qov_${name} PUBLIC qov_headers ${ARG_LIBRARIES}
                                    PRIVATE qov_compile_options)
  foreach(used IN LISTS ARG_USES)
    if(NOT TARGET qov_${used})
      message(FATAL_ERROR "component ${name} uses ${used}, which is not below it")
    endif()
  endforeach()
  target_sources(qovpub PRIVATE $<TARGET_OBJECTS:qov_${name}>)
  target_link_libraries(qov_inside INTERFACE $<TARGET_OBJECTS:qov_${name}> ${ARG_LIBRARIES})
  set_property(GLOBAL APPEND PROPERTY QOV_COMPONENTS ${name})
  set_property(GLOBAL PROPERTY QOV_COMPONENT_${name}_USES "${ARG_USES};${ARG_BESIDE}")
  set_property(GLOBAL PROPERTY QOV_COMPONENT_${name}_FOLDER "${CMAKE_CURRENT_SOURCE_DIR}")
endfunction()
