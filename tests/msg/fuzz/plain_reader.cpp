#include "tests/msg/fuzz/plain_reader.h"

namespace qov::test {
namespace {

constexpr unsigned int kRecordHead = 10;
constexpr unsigned int kCellHead = 4;
constexpr unsigned int kMaxType = 9;
/// Tag 4094, Invalid.
constexpr unsigned short kNoTypeTag = 4094 << 4;

void add(std::string& text, std::uint64_t number, unsigned int bytes) {
  for (unsigned int i = 0; i < bytes; ++i) {
    text += static_cast<char>(number >> 8 * i & 0xFF);
  }
}

}  // namespace

std::uint64_t PlainReader::number(unsigned int at, unsigned int bytes) const {
  std::uint64_t value = 0;
  for (unsigned int i = 0; i < bytes; ++i) {
    value |= std::uint64_t{bytes_[at + i]} << 8 * i;
  }
  return value;
}

bool PlainReader::readHead(const PlainHead& head, unsigned int at) {
  if (size() - at < head.size) {
    return refuse(Kind::kHeadShort, at, size() - at, head.size);
  }
  if (const unsigned int magic = number4(at); magic != head.magic) {
    return refuse(Kind::kMagic, at, magic, head.magic);
  }
  const auto version = static_cast<unsigned int>(number(at + 4, head.bytesOfVersion));
  if (version != head.version) {
    return refuse(Kind::kVersion, at + 4, version, head.version);
  }
  if (const unsigned int type = bytes_[at + 5]; head.hasType && (type < 1 || type > 4)) {
    return refuse(Kind::kType, at + 5, type, 4);
  }
  // Every header ends with LEN.
  length_ = number4(at + head.size - 4);
  return true;
}

bool PlainReader::readMessage(const PlainHead& head, unsigned int at) {
  if (!readHead(head, at)) {
    return false;
  }
  unsigned int pos = at + head.size;
  if (length_ > size() - pos) {
    return refuse(Kind::kLength, pos - 4, length_, size() - pos);
  }
  const unsigned int end = pos + length_;
  while (pos != end) {
    if (!readRecord(pos, end)) {
      return false;
    }
  }
  return true;
}

bool PlainReader::readRecord(unsigned int& pos, unsigned int end) {
  if (end - pos < kRecordHead) {
    return refuse(Kind::kRecordShort, pos, end - pos, kRecordHead);
  }
  const auto length = static_cast<unsigned int>(number(pos + 8, 2));
  const unsigned int room = end - pos - kRecordHead;
  if (length > room) {
    return refuse(Kind::kRecordLength, pos + 8, length, room);
  }
  records_.push_back({number(pos, 8), {}});
  pos += kRecordHead;
  const unsigned int recordEnd = pos + length;
  while (pos != recordEnd) {
    if (!readCell(pos, recordEnd, end)) {
      return false;
    }
  }
  return true;
}

bool PlainReader::readCell(unsigned int& pos, unsigned int recordEnd, unsigned int end) {
  // Whether there is a head goes by the message's end, all else by the record's.
  if (end - pos < kCellHead) {
    return refuse(Kind::kCellShort, pos, end - pos, kCellHead);
  }
  const auto typeTag = static_cast<unsigned short>(number(pos, 2));
  if (const unsigned int type = typeTag % 16; type > kMaxType) {
    return refuse(Kind::kCellType, pos, type, kMaxType);
  }
  const auto length = static_cast<unsigned int>(number(pos + 2, 2));
  const unsigned int left = recordEnd - pos;
  if (left < kCellHead + length) {
    return refuse(Kind::kCellLength, pos + 2, length, left < kCellHead ? 0 : left - kCellHead);
  }
  pos += kCellHead;
  const auto* const value = reinterpret_cast<const char*>(bytes_.data()) + pos;
  records_.back().cells.push_back({length == 0 ? kNoTypeTag : typeTag, {value, length}});
  pos += length;
  return true;
}

std::string PlainReader::encoded() const {
  std::string text;
  for (const PlainRecord& record : records_) {
    std::string cells;
    for (const PlainCell& cell : record.cells) {
      add(cells, cell.typeTag, 2);
      add(cells, cell.value.size(), 2);
      cells += cell.value;
    }
    add(text, record.cmd, 8);
    add(text, cells.size(), 2);
    text += cells;
  }
  return text;
}

}  // namespace qov::test
