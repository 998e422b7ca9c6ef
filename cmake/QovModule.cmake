# qov_add_module(<name> <source>...)
#
# A library that an agent loads as a module, made from sources with QOV_MODULE(). All symbols of
# its own sources and static libraries but the entry function are hidden: modules are opened with global symbols, so a class that is not
# hidden is replaced by the one of the same name in a module that was opened before.
function(qov_add_module name)
  add_library(${name} MODULE ${ARGN})
  # A soname would make the dynamic loader take a renamed copy for the module itself.
  set_target_properties(
    ${name} PROPERTIES C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden
                       VISIBILITY_INLINES_HIDDEN ON NO_SONAME ON)
  target_link_options(${name} PRIVATE LINKER:--exclude-libs,ALL)
  target_link_libraries(${name} PRIVATE qov::qovpub)
endfunction()
