# Installs the library, its headers, and what find_package() and pkg-config need. Nothing of the
# build tree, and none of our compile options, goes with it.
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/qovpub")

install(TARGETS qovpub qovtest EXPORT qovpubTargets
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/agent/common/include/qovpub"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" FILES_MATCHING PATTERN "*.h")
install(EXPORT qovpubTargets NAMESPACE qov:: DESTINATION "${package_dir}")

configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/qovpubConfig.cmake.in"
  "${CMAKE_CURRENT_BINARY_DIR}/qovpubConfig.cmake" INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file(
  "${CMAKE_CURRENT_BINARY_DIR}/qovpubConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/qovpubConfig.cmake"
              "${CMAKE_CURRENT_BINARY_DIR}/qovpubConfigVersion.cmake"
              "${PROJECT_SOURCE_DIR}/cmake/QovModule.cmake"
        DESTINATION "${package_dir}")

# The prefix as seen from the .pc files, so that an installed tree may be moved.
file(RELATIVE_PATH QOV_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
foreach(library qovpub qovtest)
  configure_file("${PROJECT_SOURCE_DIR}/cmake/${library}.pc.in"
                 "${CMAKE_CURRENT_BINARY_DIR}/${library}.pc" @ONLY)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${library}.pc"
          DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endforeach()
