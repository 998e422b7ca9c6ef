#include "msg/package_fault.h"

#include <qovpub/detail/cell_bytes.h>

#include <cstddef>
#include <type_traits>

namespace qov {
namespace {

using Kind = DecodeFault::Kind;

/// What is wrong with the bytes at `p`, enough for a header.
template <class Head>
DecodeFault fieldFault(const unsigned char* p) {
  const auto magic = loadWord<std::uint32_t>(p + offsetof(Head, magic_));
  if (magic != Head::kMagic) {
    return {Kind::kMagic, offsetof(Head, magic_), magic, Head::kMagic};
  }
  const auto version = loadWord<decltype(Head::version_)>(p + offsetof(Head, version_));
  if (version != Head::kVersion) {
    return {Kind::kVersion, offsetof(Head, version_), version, Head::kVersion};
  }
  if constexpr (std::is_same_v<Head, QOVMsgHead>) {
    const std::uint8_t type = p[offsetof(Head, type_)];
    if (!Head::isType(type)) {
      constexpr unsigned int kMaxType = 4;
      return {Kind::kType, offsetof(Head, type_), type, kMaxType};
    }
  }
  return {};
}

}  // namespace

const char* DecodeFault::text() const noexcept {
  switch (kind) {
    case Kind::kNone:
      return "nothing is wrong";
    case Kind::kHeadShort:
      return "there are fewer bytes than the header has";
    case Kind::kMagic:
      return "the magic is another";
    case Kind::kVersion:
      return "the version is another";
    case Kind::kType:
      return "the type is none of 1 to 4";
    case Kind::kLength:
      return "the message is longer than the bytes given";
    case Kind::kRecordShort:
      return "there are fewer bytes than a record's head has";
    case Kind::kRecordLength:
      return "a record is longer than its message";
    case Kind::kCellShort:
      return "there are fewer bytes than a cell's head has";
    case Kind::kCellType:
      return "a cell's type is none of 0 to 9";
    case Kind::kCellLength:
      return "a cell is longer than its record";
    case Kind::kNoMemory:
      return "there is no memory for the records";
  }
  return "unknown";
}

template <class Head>
DecodeFault headFault(const unsigned char* buf, unsigned int size) {
  if (buf == nullptr || size < sizeof(Head)) {
    return {Kind::kHeadShort, 0, buf == nullptr ? 0 : size, sizeof(Head)};
  }
  return fieldFault<Head>(buf);
}

template <class Head>
DecodeFault messageFault(const unsigned char* buf, unsigned int size) {
  const DecodeFault fault = headFault<Head>(buf, size);
  if (fault.kind != Kind::kNone) {
    return fault;
  }
  const auto len = loadWord<std::uint32_t>(buf + offsetof(Head, len_));
  const auto left = static_cast<unsigned int>(size - sizeof(Head));
  return len > left ? DecodeFault{Kind::kLength, offsetof(Head, len_), len, left} : fault;
}

template DecodeFault headFault<QOVMsgHead>(const unsigned char*, unsigned int);
template DecodeFault messageFault<QOVMsgHead>(const unsigned char*, unsigned int);
template DecodeFault messageFault<TLVMsgHeadV3>(const unsigned char*, unsigned int);

}  // namespace qov
