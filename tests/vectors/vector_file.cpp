#include "tests/vectors/vector_file.h"

#include <json/reader.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

namespace qov::tests {
namespace {

const fs::path kFolder = QOV_VECTORS_DIR;
constexpr std::string_view kDigits = "0123456789abcdef";

std::ifstream open(const std::string& name) {
  std::ifstream file(kFolder / name);
  if (!file) {
    throw std::runtime_error("cannot read " + name);
  }
  return file;
}

std::string textOf(const std::string& name) {
  std::ifstream file = open(name);
  return {std::istreambuf_iterator<char>(file), {}};
}

Json::Value readJson(const std::string& name) {
  std::ifstream file = open(name);
  Json::CharReaderBuilder builder;
  builder.strictMode(&builder.settings_);
  Json::Value value;
  std::string errors;
  if (!Json::parseFromStream(builder, file, &value, &errors)) {
    throw std::runtime_error(name + ": " + errors);
  }
  return value;
}

}  // namespace

std::vector<std::string> vectorNames(const std::string& extension) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(kFolder)) {
    if (entry.path().extension() == extension) {
      names.push_back(entry.path().stem());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

Vector readVector(const std::string& name) {
  return {bytesOfHex(textOf(name + ".hex")), readJson(name + ".json")};
}

std::vector<unsigned char> bytesOfHex(std::string_view text) {
  std::vector<unsigned char> bytes;
  bool half = false;
  bool comment = false;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    comment = c == '#' || (comment && c != '\n');
    if (comment || std::isspace(byte) != 0) {
      continue;
    }
    const std::size_t digit = kDigits.find(static_cast<char>(std::tolower(byte)));
    if (digit == std::string_view::npos) {
      throw std::runtime_error(std::string("not hexadecimal: ") + c);
    }
    if (half) {
      bytes.back() = static_cast<unsigned char>(bytes.back() * 16U + digit);
    } else {
      bytes.push_back(static_cast<unsigned char>(digit));
    }
    half = !half;
  }
  if (half) {
    throw std::runtime_error("an odd number of hexadecimal digits");
  }
  return bytes;
}

std::string hexOf(const unsigned char* bytes, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0xF];
  }
  return text;
}

}  // namespace qov::tests
