# Links libqovpub from its components.
set_target_properties(
  qovpub PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                    EXPORT_NAME qovpub OUTPUT_NAME qovpub)
# The public headers need it, too.
target_compile_features(qovpub PUBLIC cxx_std_17)
target_include_directories(
  qovpub PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/agent/common/include>
                $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(
  qovpub
  PUBLIC qov::platform PkgConfig::ACE PkgConfig::JSONCPP Threads::Threads
  PRIVATE PkgConfig::SAFEC PkgConfig::TINYXML OpenSSL::Crypto ${CMAKE_DL_LIBS})
# Where an installed copy finds the platform library: beside itself, or where the real one was.
set_target_properties(
  qovpub PROPERTIES INSTALL_RPATH "$ORIGIN" INSTALL_RPATH_USE_LINK_PATH ON)
# Calls from one component to another go straight there, also where users may call the same.
target_link_options(qovpub PRIVATE -Wl,-Bsymbolic-functions)
if(NOT QOV_SANITIZE)
  # A symbol nobody defines shall fail here, not when an agent opens its first module.
  target_link_options(qovpub PRIVATE -Wl,--no-undefined)
endif()
