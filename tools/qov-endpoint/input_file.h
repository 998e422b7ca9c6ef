#ifndef QOV_TOOLS_QOV_ENDPOINT_INPUT_FILE_H
#define QOV_TOOLS_QOV_ENDPOINT_INPUT_FILE_H

#include <stdexcept>
#include <string>

#include "modules/common/json_object.h"
#include "tools/common/input.h"

namespace qov::endpoint {

/// Hands the JSON of a file to `read`. Whatever is wrong with either is a std::runtime_error that
/// begins with the file's name.
template <class Read>
void readInputFile(const std::string& path, Read read) {
  try {
    const std::string text = qov::tools::readFile(path);
    if (text.empty()) {
      throw std::runtime_error("empty");
    }
    read(qov::common::parseJson(text));
  } catch (const std::exception& wrong) {
    throw std::runtime_error(path + ": " + wrong.what());
  }
}

}  // namespace qov::endpoint

#endif
