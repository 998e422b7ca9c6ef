#ifndef QOV_TOOLS_QOV_ENDPOINT_PROC_FILE_H
#define QOV_TOOLS_QOV_ENDPOINT_PROC_FILE_H

#include <fstream>
#include <sstream>
#include <string>

namespace qov::endpoint {

/// The content of a file below /proc; what could be read of it when that fails, as it does when the
/// process ends after the file was opened. Nothing when it cannot be opened.
inline std::string readProcFile(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream content;
  content << file.rdbuf();  // keeps the exception to itself that a failed read throws
  return content.str();
}

}  // namespace qov::endpoint

#endif
