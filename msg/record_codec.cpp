#include "msg/record_codec.h"

#include <qovpub/detail/cell_bytes.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <new>

namespace qov {
namespace {

using Kind = DecodeFault::Kind;

constexpr unsigned int kLengthAt = 8;
constexpr unsigned int kMaxType = CTLVCell::TLV_TIME;
/// What the places of neighbours in a block differ by.
// NOLINTNEXTLINE(misc-redundant-expression): they differ
constexpr unsigned int kPlaceStep = sizeof(CTLVCell) / alignof(CTLVCell);

unsigned int lengthOf(std::uint32_t cellHead) {
  return cellHead >> 16;
}
unsigned int typeOf(std::uint32_t cellHead) {
  return cellHead & 0xF;
}

}  // namespace

/// Where parsing stands in one record.
struct RecordCodec::Cursor {
  const unsigned char* const start;
  /// The end of the record, and the end of what may be read.
  const unsigned char* const end;
  const unsigned char* const readable;
  /// The next cell.
  const unsigned char* in;
};

/// Makes the cell `head` with the value at `in` and returns the value's end, or null when there is
/// no memory; `readable` bounds what may be read.
inline const unsigned char* RecordCodec::makeCell(CTLVCell* slot, std::uint32_t head,
                                                  const unsigned char* in,
                                                  const unsigned char* readable,
                                                  CellValue::Place place, CTLVRecordV3& record,
                                                  const CTLVCell*& last) noexcept {
  const unsigned int length = lengthOf(head);
  // The widths of numbers are told apart by branches: where the next cell starts is then predicted,
  // not waited for.
  if (length == 1) {
    ::new (slot) CTLVCell(place, head, *in);
    return in + 1;
  }
  if (length == 2) {
    ::new (slot) CTLVCell(place, head, loadWord<std::uint16_t>(in));
    return in + 2;
  }
  if (length == 4) {
    ::new (slot) CTLVCell(place, head, loadWord<std::uint32_t>(in));
    return in + 4;
  }
  if (length - 1 < CellValue::kInside) {
    ::new (slot) CTLVCell(place, head, 0);
    if (readable - in >= CellValue::kInside && length > 8) {
      copyInside(slot->value_, in);
    } else {
      copySmall(slot->value_, in, length, false);
    }
    return in + length;
  }
  // As CTLVCell::setCell(): an empty value leaves the new cell's tag and type as they are.
  CellBlock* const lender = record.lender();
  if (length > 0 && lender != nullptr && lender->makeLong(slot, head, in, length)) {
    last = lender->lastPlace();
    return in + length;
  }
  ::new (slot) CTLVCell(place);
  record.sweep_ = record.sweep_ || length > 0;
  return length == 0 || slot->replace(head & 0xFFFF, in, length, false) ? in + length : nullptr;
}

/// Makes cells until the record ends or the block is full. Stops at a bad cell with any fault.
inline DecodeFault::Kind RecordCodec::parseBlock(Cursor& at, CTLVRecordV3& record) noexcept {
  CellBlock& block = *record.last_;
  const unsigned char* const end = at.end;
  const unsigned char* in = at.in;
  CTLVCell* cell = block.end();
  const CTLVCell* last = block.lastPlace();
  // Counted along: that is faster than to work it out for each cell.
  auto place = static_cast<unsigned int>(block.placeOf(cell));
  auto kind = Kind::kNone;
  for (; in != end && cell <= last; ++cell, place += kPlaceStep) {
    if (end - in < MIN_TLV_SIZE) {
      kind = Kind::kCellShort;
      break;
    }
    const auto head = loadWord<std::uint32_t>(in);
    const unsigned char* const value = in + MIN_TLV_SIZE;
    if (typeOf(head) > kMaxType || lengthOf(head) > end - value) {
      kind = Kind::kCellLength;
      break;
    }
    in = makeCell(cell, head, value, at.readable, static_cast<CellValue::Place>(place), record,
                  last);
    if (in == nullptr) {
      in = value;
      kind = Kind::kNoMemory;
      break;
    }
  }
  block.setEnd(cell);
  at.in = in;
  return kind;
}

/// How many cells there are from `at` on, if they are sound; not more than a block holds.
unsigned long RecordCodec::countCells(const Cursor& at) noexcept {
  unsigned long cells = 0;
  for (std::ptrdiff_t left = at.end - at.in; left >= MIN_TLV_SIZE && cells < CellBlock::kMaxCells;
       ++cells) {
    left -= MIN_TLV_SIZE + lengthOf(loadWord<std::uint32_t>(at.end - left));
  }
  return cells;
}

inline DecodeFault::Kind RecordCodec::parseCells(Cursor& at, CTLVRecordV3& record) noexcept {
  auto kind = Kind::kNone;
  while (at.in != at.end && kind == Kind::kNone) {
    if ((record.last_ == nullptr || record.last_->full()) &&
        !record.makeRoom(record.store_ == nullptr ? countCells(at) : 0)) {
      return Kind::kNoMemory;
    }
    kind = parseBlock(at, record);
  }
  return kind;
}

/// Says what is wrong with the bad cell at `at`.
///
/// Whether its head is there goes by what may be read, its end by the record's. A cell that runs
/// into the next record is refused although its bytes are there: accepting it would let few bytes
/// on the wire unfold into very many in memory.
DecodeFault RecordCodec::judge(const Cursor& at) noexcept {
  const auto pos = static_cast<unsigned int>(at.in - at.start);
  const auto left = static_cast<unsigned int>(at.readable - at.in);
  if (left < MIN_TLV_SIZE) {
    return {Kind::kCellShort, pos, left, MIN_TLV_SIZE};
  }
  const auto head = loadWord<std::uint32_t>(at.in);
  if (typeOf(head) > kMaxType) {
    return {Kind::kCellType, pos, typeOf(head), kMaxType};
  }
  // Its head may end behind the record, too.
  const auto room = std::max<std::ptrdiff_t>(at.end - at.in - MIN_TLV_SIZE, 0);
  constexpr unsigned int kCellLengthAt = 2;
  return {Kind::kCellLength, pos + kCellLengthAt, lengthOf(head), static_cast<unsigned int>(room)};
}

CTLVRecordV3* RecordCodec::makeAlone(std::uint64_t cmd) noexcept {
  auto* record = new (std::nothrow) CTLVRecordV3(cmd);
  if (record == nullptr) {
    errno = ENOMEM;
  }
  return record;
}

DecodeFault RecordCodec::parse(const unsigned char* p, unsigned int remain, RecordStore* store,
                               CTLVRecordV3*& rec) noexcept {
  rec = nullptr;
  if (p == nullptr || remain < MIN_RECORD_SIZE) {
    return {Kind::kRecordShort, 0, remain, MIN_RECORD_SIZE};
  }
  const unsigned int length = loadWord<std::uint16_t>(p + kLengthAt);
  if (length + MIN_RECORD_SIZE > remain) {
    return {Kind::kRecordLength, kLengthAt, length, remain - MIN_RECORD_SIZE};
  }
  const auto cmd = loadWord<std::uint64_t>(p);
  CTLVRecordV3* record = store != nullptr ? store->make(cmd) : makeAlone(cmd);
  if (record == nullptr) {
    return {Kind::kNoMemory};
  }
  record->length_ = length;
  Cursor at{p, p + MIN_RECORD_SIZE + length, p + remain, p + MIN_RECORD_SIZE};
  const Kind kind = parseCells(at, *record);
  if (kind == Kind::kNone) {
    rec = record;
    return {};
  }
  if (store == nullptr) {
    delete record;
  }
  return kind == Kind::kNoMemory ? DecodeFault{kind} : judge(at);
}

inline unsigned char* RecordCodec::writeCell(const CTLVCell& cell, unsigned char* out,
                                             const unsigned char* end) noexcept {
  storeWord(out, cell.head_);
  out += MIN_TLV_SIZE;
  const unsigned int length = cell.length();
  if (length > CellValue::kInside) {
    copyLong(out, cell.value(), length);
  } else if (end - out >= CellValue::kInside) {
    // What is too much is overwritten by the next cell.
    copyInside(out, cell.value_);
  } else if (length <= 8) {
    storeUpTo8(out, loadWord<std::uint64_t>(cell.value_), length);
  } else {
    std::memcpy(out, cell.value_, length);
  }
  return out + length;
}

unsigned char* RecordCodec::write(const CTLVRecordV3& record, unsigned char* out,
                                  unsigned char* end) noexcept {
  unsigned char* const start = out;
  storeWord(out, record.cmd_);
  out += MIN_RECORD_SIZE;
  // An iterator would load each block's end again for each cell.
  for (CellBlock* block = record.first_; block != nullptr; block = block->next()) {
    const CTLVCell* const last = block->end();
    for (CTLVCell* slot = block->begin(); slot != last; ++slot) {
      out = writeCell(*CellBlock::cellAt(slot), out, end);
    }
  }
  storeWord(start + kLengthAt, static_cast<std::uint16_t>(out - start - MIN_RECORD_SIZE));
  return out;
}

}  // namespace qov
