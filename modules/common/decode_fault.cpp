#include "modules/common/decode_fault.h"

#include <cstdio>
#include <new>

namespace qov::common {

std::string hexWord(std::uint32_t word) {
  char text[11];
  std::snprintf(text, sizeof text, "0x%08x", word);
  return text;
}

std::string textOf(const DecodeFault& fault) {
  using Kind = DecodeFault::Kind;
  const std::string value = std::to_string(fault.value);
  const std::string limit = std::to_string(fault.limit);
  switch (fault.kind) {
    case Kind::kHeadShort:
      return "head-short: " + value + " bytes are left, a header has " + limit;
    case Kind::kMagic:
      return "magic: " + hexWord(fault.value) + " is not " + hexWord(fault.limit);
    case Kind::kVersion:
      return "version: " + value + " is not " + limit;
    case Kind::kType:
      return "type: " + value + " is none of 1 to " + limit;
    case Kind::kLength:
      return "length: LEN says that " + value + " bytes follow the header, but " + limit + " do";
    case Kind::kRecordShort:
      return "record-short: " + value + " bytes are left of the message, a record's header has " +
             limit;
    case Kind::kRecordLength:
      return "record-length: the record's header says that " + value + " bytes follow it, but " +
             limit + " are left of the message";
    case Kind::kCellShort:
      return "cell-short: the message ends within a cell's header, which has " + limit + " bytes";
    case Kind::kCellType:
      return "cell-type: " + value + " is none of 0 to " + limit;
    case Kind::kCellLength:
      return "cell-length: a value of " + value + " bytes goes beyond its record";
    default:
      throw std::bad_alloc();
  }
}

}  // namespace qov::common
