#ifndef QOV_TESTS_WIRESHARK_VECTORS_H
#define QOV_TESTS_WIRESHARK_VECTORS_H

#include <json/json.h>

#include <string>
#include <vector>

namespace qov::test {

/// A stretch of a stream that was written out by hand, with its meaning.
struct StreamVector {
  std::string name;
  std::string bytes;
  std::vector<Json::Value> messages;
  std::string refused;  ///< empty if all of it can be decoded
};

/// The vectors of V3 messages, in the order of their names.
std::vector<StreamVector> vectorsOfV3();

}  // namespace qov::test

#endif
