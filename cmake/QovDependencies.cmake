# The third-party libraries, all from Debian packages (scripts/packages).
find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(PkgConfig REQUIRED)
pkg_check_modules(ACE REQUIRED IMPORTED_TARGET ACE)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
pkg_check_modules(SAFEC REQUIRED IMPORTED_TARGET libsafec)
pkg_check_modules(TINYXML REQUIRED IMPORTED_TARGET tinyxml)
# Debian's library has its functions on std::string, which the headers show only with this.
set_property(TARGET PkgConfig::TINYXML APPEND PROPERTY INTERFACE_COMPILE_DEFINITIONS TIXML_USE_STL)
if(QOV_BUILD_TOOLS)
  find_package(CLI11 REQUIRED)
endif()
