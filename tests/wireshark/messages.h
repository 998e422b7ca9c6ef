#ifndef QOV_TESTS_WIRESHARK_MESSAGES_H
#define QOV_TESTS_WIRESHARK_MESSAGES_H

#include <cstdint>
#include <string>

#include "tests/msg/bytes.h"

namespace qov::test {

inline std::string textOf(const tests::Bytes& bytes) {
  return {bytes.data().begin(), bytes.data().end()};
}

/// A cell with the given type code, whether there is such a type or not.
inline std::string cell(unsigned int tag, unsigned int type, const std::string& value) {
  return textOf(
      tests::Bytes().cell(tag, type, static_cast<unsigned int>(value.size())).text(value));
}

inline std::string record(std::uint64_t command, const std::string& cells = "") {
  return textOf(
      tests::Bytes().record(command, static_cast<unsigned int>(cells.size())).text(cells));
}

/// A head with any LEN.
inline std::string head(unsigned int serial, std::uint64_t length, std::uint64_t result = 0) {
  return textOf(tests::Bytes()
                    .u32(0x55555555)
                    .u32(3)
                    .u32(result)
                    .u32(0xFFFFFFFF)
                    .u16(0xFFFD)
                    .u16(0xFFFF)
                    .u16(0xFFFF)
                    .u16(serial)
                    .u32(length));
}

inline std::string message(unsigned int serial, const std::string& records = "",
                           std::uint64_t result = 0) {
  return head(serial, records.size(), result) + records;
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
