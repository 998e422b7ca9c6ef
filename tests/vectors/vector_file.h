#ifndef QOV_TESTS_VECTORS_VECTOR_FILE_H
#define QOV_TESTS_VECTORS_VECTOR_FILE_H

#include <json/value.h>

#include <string>
#include <string_view>
#include <vector>

namespace qov::tests {

/// One pair of files of this folder: bytes, and what they mean. See README.md.
struct Vector {
  std::vector<unsigned char> bytes;
  Json::Value meaning;
};

/// The names of all files of this folder that end in `extension`, without it, in order.
std::vector<std::string> vectorNames(const std::string& extension);

/// Reads a pair; throws std::runtime_error when a file is missing or cannot be read.
Vector readVector(const std::string& name);

/// The bytes that `text` writes in hexadecimal, blanks and comments apart; throws
/// std::runtime_error.
std::vector<unsigned char> bytesOfHex(std::string_view text);

/// Lower case, without blanks.
std::string hexOf(const unsigned char* bytes, std::size_t count);

}  // namespace qov::tests

#endif
