#ifndef QOV_TOOLS_QOV_ENDPOINT_PROC_FILE_H
#define QOV_TOOLS_QOV_ENDPOINT_PROC_FILE_H

#include <fstream>
#include <iterator>
#include <string>

namespace qov::endpoint {

/// The content of a file below /proc; empty when it cannot be read, as that of a process gone.
inline std::string readProcFile(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace qov::endpoint

#endif
