#include "tests/layers/includes.h"

#include <fstream>
#include <regex>
#include <stdexcept>

namespace qov::layers {

std::vector<std::string> includesOf(const std::filesystem::path& file) {
  static const std::regex directive(R"re(^\s*#\s*include\s*["<]([^">]+)[">].*)re");
  std::ifstream in(file);
  if (!in) {
    throw std::runtime_error("cannot read " + file.string());
  }
  std::vector<std::string> included;
  for (std::string line; std::getline(in, line);) {
    std::smatch match;
    if (std::regex_match(line, match, directive)) {
      included.push_back(match[1]);
    }
  }
  return included;
}

}  // namespace qov::layers
