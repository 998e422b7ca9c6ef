#include "tools/qovctl/refusal.h"

#include <qovpub/detail/cell_bytes.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>

#include "msg/record_codec.h"

namespace qov::ctl {
namespace {

using std::to_string;

template <class Word>
Word wordAt(std::string_view bytes, std::size_t offset) {
  return loadWord<Word>(reinterpret_cast<const unsigned char*>(bytes.data()) + offset);
}

std::string hexWord(std::uint32_t word) {
  char text[11];
  std::snprintf(text, sizeof text, "0x%08x", word);
  return text;
}

/// The checks that the headers have in common.
template <class Head, class Version>
std::optional<Refusal> startRefusal(std::string_view bytes, Version) {
  if (bytes.size() < sizeof(Head)) {
    return Refusal{
        "head-short", 0,
        to_string(bytes.size()) + " bytes are left, a header has " + to_string(sizeof(Head))};
  }
  const auto magic = wordAt<std::uint32_t>(bytes, offsetof(Head, magic_));
  if (magic != Head::kMagic) {
    return Refusal{"magic", offsetof(Head, magic_),
                   hexWord(magic) + " is not " + hexWord(Head::kMagic)};
  }
  const auto version = wordAt<Version>(bytes, offsetof(Head, version_));
  if (version != Head::kVersion) {
    return Refusal{"version", offsetof(Head, version_),
                   to_string(version) + " is not " + to_string(Head::kVersion)};
  }
  return std::nullopt;
}

std::optional<Refusal> headRefusal(std::string_view bytes, const TLVMsgHeadV3&) {
  return startRefusal<TLVMsgHeadV3>(bytes, std::uint32_t{});
}

std::optional<Refusal> headRefusal(std::string_view bytes, const QOVMsgHead&) {
  auto refusal = startRefusal<QOVMsgHead>(bytes, std::uint8_t{});
  if (!refusal) {
    const auto type = wordAt<std::uint8_t>(bytes, offsetof(QOVMsgHead, type_));
    if (type < 1 || type > 4) {
      refusal =
          Refusal{"type", offsetof(QOVMsgHead, type_), to_string(type) + " is none of 1 to 4"};
    }
  }
  return refusal;
}

/// What is wrong with the record at `pos`, of which `remain` bytes are there.
Refusal recordRefusal(const RecordFault& fault, std::size_t pos, std::size_t remain) {
  const std::size_t at = pos + fault.pos;
  switch (fault.kind) {
    case RecordFault::Kind::kRecordShort:
      return {"record-short", pos,
              to_string(remain) + " bytes are left of the message, a record's header has 10"};
    case RecordFault::Kind::kRecordLength:
      return {"record-length", pos + sizeof(std::uint64_t),
              "the record's header says that " + to_string(fault.recordLength) +
                  " bytes follow it, but " + to_string(remain - MIN_RECORD_SIZE) +
                  " are left of the message"};
    case RecordFault::Kind::kCellShort:
      return {"cell-short", at, "the message ends within a cell's header, which has 4 bytes"};
    case RecordFault::Kind::kCellType:
      return {"cell-type", at, to_string(fault.value) + " is none of 0 to 9"};
    case RecordFault::Kind::kCellLength:
      // The fault's place is that of the value.
      return {"cell-length", at - sizeof(std::uint16_t),
              "a value of " + to_string(fault.value) + " bytes goes beyond its record"};
    default:
      throw std::bad_alloc();
  }
}

template <class Head>
Refusal bodyRefusal(std::string_view bytes) {
  const std::size_t end = sizeof(Head) + wordAt<std::uint32_t>(bytes, offsetof(Head, len_));
  if (end > bytes.size()) {
    return {"length", offsetof(Head, len_),
            "LEN says that " + to_string(end - sizeof(Head)) + " bytes follow the header, but " +
                to_string(bytes.size() - sizeof(Head)) + " do"};
  }
  for (std::size_t pos = sizeof(Head); pos < end;) {
    const auto* const p = reinterpret_cast<const unsigned char*>(bytes.data()) + pos;
    CTLVRecordV3* record = nullptr;
    const RecordFault fault =
        RecordCodec::parse(p, static_cast<unsigned int>(end - pos), nullptr, record);
    const std::unique_ptr<CTLVRecordV3> own(record);
    if (record == nullptr) {
      return recordRefusal(fault, pos, end - pos);
    }
    pos += MIN_RECORD_SIZE + fault.recordLength;
  }
  throw std::bad_alloc();
}

template <class Head>
Refusal packageRefusal(std::string_view bytes, const Head& kind) {
  const auto refusal = headRefusal(bytes, kind);
  return refusal ? *refusal : bodyRefusal<Head>(bytes);
}

Refusal omRefusal(std::string_view bytes) {
  const QOVMsgHead kind;
  if (const auto refusal = headRefusal(bytes, kind)) {
    return *refusal;
  }
  Refusal inner = packageRefusal(bytes.substr(sizeof(QOVMsgHead)), TLVMsgHeadV3());
  inner.offset += sizeof(QOVMsgHead);
  inner.detail += " (in the inner message)";
  return inner;
}

}  // namespace

Refusal findRefusal(std::string_view bytes, Kind kind) {
  switch (kind) {
    case Kind::kV3:
      return packageRefusal(bytes, TLVMsgHeadV3());
    case Kind::kInternal:
      return packageRefusal(bytes, QOVMsgHead());
    default:
      return omRefusal(bytes);
  }
}

Refusal unknownKind(std::string_view bytes) {
  if (bytes.size() < sizeof(std::uint32_t)) {
    return {
        "head-short", 0,
        to_string(bytes.size()) + " bytes are left, and a header begins with a magic number of 4"};
  }
  return {"magic", 0,
          hexWord(wordAt<std::uint32_t>(bytes, 0)) + " is neither " +
              hexWord(TLVMsgHeadV3::kMagic) + " (V3) nor " + hexWord(QOVMsgHead::kMagic) +
              " (internal, OM)"};
}

std::string textOf(const Refusal& refusal, std::size_t start) {
  return "bad data at byte " + to_string(start + refusal.offset) + ": " + refusal.word + ": " +
         refusal.detail;
}

}  // namespace qov::ctl
