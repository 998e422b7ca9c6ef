#ifndef QOV_TOOLS_QOV_ENDPOINT_INPUT_FILE_H
#define QOV_TOOLS_QOV_ENDPOINT_INPUT_FILE_H

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "tools/common/json_object.h"

namespace qov::endpoint {

/// Hands the JSON of a file to `read`. Whatever is wrong with either is a std::runtime_error that
/// begins with the file's name.
template <class Read>
void readInputFile(const std::string& path, Read read) {
  try {
    // What failed before is no reason; an empty file leaves none.
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    // A directory can be opened, but not read.
    if (!file || !(text << file.rdbuf())) {
      throw std::runtime_error(errno != 0 ? std::strerror(errno) : "empty");
    }
    read(qov::tools::parseJson(text.str()));
  } catch (const std::exception& wrong) {
    throw std::runtime_error(path + ": " + wrong.what());
  }
}

}  // namespace qov::endpoint

#endif
