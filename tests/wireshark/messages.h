#ifndef QOV_TESTS_WIRESHARK_MESSAGES_H
#define QOV_TESTS_WIRESHARK_MESSAGES_H

#include <cstdint>
#include <string>

#include "tests/tools/endpoint_client.h"

namespace qov::test {

/// A head with any LEN.
inline std::string head(std::uint16_t serial, std::uint64_t length) {
  const std::string whole = message(serial, "");
  return whole.substr(0, whole.size() - 4) + le(length, 4);
}

/// The type codes of cells.
enum CellType : unsigned int {
  kInvalid,
  kOctet,
  kString,
  kUint,
  kInt,
  kBool,
  kEnum,
  kArray,
  kJson,
  kTime
};

}  // namespace qov::test

#endif
