# The device configuration. It logs, and so lies above the log, which reads its own settings through
# the INI operator of the same folder.
qov_component(
  config_xml
  FOLDER "${CMAKE_CURRENT_LIST_DIR}"
  SOURCES qov_xml.cpp qov_xml_depth.cpp qov_xml_file.cpp qov_xml_parser.cpp
  USES frame_env diag
  LIBRARIES PkgConfig::TINYXML)
