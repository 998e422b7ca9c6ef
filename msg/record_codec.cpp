#include "msg/record_codec.h"

#include <cerrno>
#include <new>

#include "msg/cell_bytes.h"

namespace qov {
namespace {

constexpr unsigned int kLengthAt = 8;
constexpr unsigned int kMaxType = CTLVCell::TLV_TIME;

unsigned int lengthOf(std::uint32_t cellHead) {
  return cellHead >> 16;
}
unsigned int typeOf(std::uint32_t cellHead) {
  return cellHead & 0xF;
}

}  // namespace

/// Where parsing stands in one record; positions count from its start.
struct RecordCodec::Cursor {
  const unsigned char* const start;
  const unsigned int remain;
  const unsigned int end;
  unsigned int pos = MIN_RECORD_SIZE;
  unsigned int value = 0;
};

RecordFault RecordCodec::parse(const unsigned char* p, unsigned int remain, RecordStore* store,
                               CTLVRecordV3*& rec) noexcept {
  using Kind = RecordFault::Kind;
  rec = nullptr;
  if (p == nullptr || remain < MIN_RECORD_SIZE) {
    return {Kind::kNoHead};
  }
  const unsigned int length = loadWord<std::uint16_t>(p + kLengthAt);
  if (length + MIN_RECORD_SIZE > remain) {
    return {Kind::kRecordTooLong, length};
  }
  const auto cmd = loadWord<std::uint64_t>(p);
  CTLVRecordV3* record = store != nullptr ? store->make(cmd) : makeAlone(cmd);
  if (record == nullptr) {
    return {Kind::kNoMemory, length};
  }
  Cursor at{p, remain, length + MIN_RECORD_SIZE};
  const Kind fault = parseCells(at, *record);
  record->length_ = length;
  if (fault == Kind::kNone) {
    rec = record;
  } else if (store == nullptr) {
    delete record;
  }
  return {fault, length, at.pos, at.value};
}

CTLVRecordV3* RecordCodec::makeAlone(std::uint64_t cmd) noexcept {
  auto* record = new (std::nothrow) CTLVRecordV3(cmd);
  if (record == nullptr) {
    errno = ENOMEM;
  }
  return record;
}

/// How many cells there are from `at` on, if they are sound.
unsigned long RecordCodec::countCells(const Cursor& at) noexcept {
  unsigned long cells = 0;
  for (unsigned int pos = at.pos; pos + MIN_TLV_SIZE <= at.end; ++cells) {
    pos += MIN_TLV_SIZE + lengthOf(loadWord<std::uint32_t>(at.start + pos));
  }
  return cells;
}

RecordFault::Kind RecordCodec::parseCells(Cursor& at, CTLVRecordV3& record) noexcept {
  using Kind = RecordFault::Kind;
  Kind fault = Kind::kNone;
  while (at.pos < at.end && fault == Kind::kNone) {
    if ((record.last_ == nullptr || record.last_->full()) &&
        !record.makeRoom(record.store_ == nullptr ? countCells(at) + 1 : 0)) {
      return Kind::kNoMemory;
    }
    fault = parseBlock(at, *record.last_, record.sweep_);
  }
  return fault;
}

/// Makes cells until the record ends, the block is full or something is wrong. No position passes
/// the record's end, and that lies within what may be read.
RecordFault::Kind RecordCodec::parseBlock(Cursor& at, CellBlock& block, bool& sweep) noexcept {
  using Kind = RecordFault::Kind;
  const unsigned char* const p = at.start;
  const unsigned int end = at.end;
  unsigned int pos = at.pos;
  CTLVCell* cell = block.end();
  CTLVCell* const limit = block.limit();
  Kind fault = Kind::kNone;
  for (; pos < end && cell != limit; ++cell) {
    if (at.remain - pos < MIN_TLV_SIZE) {
      fault = Kind::kNoCellHead;
      break;
    }
    const auto head = loadWord<std::uint32_t>(p + pos);
    const unsigned int length = lengthOf(head);
    if (typeOf(head) > kMaxType) {
      fault = Kind::kBadType;
      at.value = typeOf(head);
      break;
    }
    pos += MIN_TLV_SIZE;
    // A cell that runs into the next record is refused although its bytes are there: accepting it
    // would let few bytes on the wire unfold into very many in memory.
    if (length + pos > end) {
      fault = Kind::kCellTooLong;
      at.value = length;
      break;
    }
    if (!makeCell(cell, head, p + pos, p + at.remain)) {
      fault = Kind::kNoMemory;
      break;
    }
    sweep = sweep || length > CTLVCell::kInside;
    pos += length;
  }
  at.pos = pos;
  block.setEnd(cell);
  return fault;
}

/// Makes the cell `head` with the value at `in`; `end` bounds what may be read.
inline bool RecordCodec::makeCell(CTLVCell* slot, std::uint32_t head, const unsigned char* in,
                                  const unsigned char* end) noexcept {
  constexpr auto kPlace = CTLVCell::Place::kInBlock;
  const unsigned int length = lengthOf(head);
  if (length - 1 < 8 && end - in >= 8) {
    const std::uint64_t keep = ~0ULL >> (8 - length) * 8;
    ::new (slot) CTLVCell(kPlace, head, loadWord<std::uint64_t>(in) & keep);
    return true;
  }
  if (length - 1 < CTLVCell::kInside) {
    ::new (slot) CTLVCell(kPlace, head, 0);
    copySmall(slot->value_, in, length, false);
    return true;
  }
  // As CTLVCell::setCell(): an empty value leaves the new cell's tag and type as they are.
  ::new (slot) CTLVCell(kPlace);
  return length == 0 || slot->replace(head & 0xFFFF, in, length, false);
}

unsigned char* RecordCodec::write(const CTLVRecordV3& record, unsigned char* out,
                                  unsigned char* end) noexcept {
  unsigned char* const start = out;
  storeWord(out, record.cmd_);
  out += MIN_RECORD_SIZE;
  for (const CTLVCell& cell : record) {
    storeWord(out, cell.head_);
    out += MIN_TLV_SIZE;
    const unsigned int length = cell.length();
    if (length <= 8 && end - out >= 8) {
      // What is too much is overwritten by the next cell.
      storeWord(out, loadWord<std::uint64_t>(cell.value_));
    } else if (length <= CTLVCell::kInside && end - out >= CTLVCell::kInside) {
      std::memcpy(out, cell.value_, CTLVCell::kInside);
    } else {
      std::memcpy(out, cell.value(), length);
    }
    out += length;
  }
  storeWord(start + kLengthAt, static_cast<std::uint16_t>(out - start - MIN_RECORD_SIZE));
  return out;
}

}  // namespace qov
