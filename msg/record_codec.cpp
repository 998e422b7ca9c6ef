#include "msg/record_codec.h"

#include <algorithm>
#include <memory>
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

RecordScan RecordCodec::scan(const unsigned char* p, unsigned int remain) noexcept {
  using Fault = RecordScan::Fault;
  RecordScan found;
  auto fail = [&found](Fault fault, unsigned int pos, unsigned int value) {
    found.fault = fault;
    found.pos = pos;
    found.value = value;
    return found;
  };
  if (p == nullptr || remain < MIN_RECORD_SIZE) {
    return fail(Fault::kNoHead, 0, 0);
  }
  found.recordLength = loadWord<std::uint16_t>(p + kLengthAt);
  const unsigned int end = found.recordLength + MIN_RECORD_SIZE;
  if (end > remain) {
    return fail(Fault::kRecordTooLong, 0, 0);
  }
  // pos never passes end, and end never passes remain.
  for (unsigned int pos = MIN_RECORD_SIZE; pos < end; ++found.cells) {
    if (remain - pos < MIN_TLV_SIZE) {
      return fail(Fault::kNoCellHead, pos, 0);
    }
    const auto head = loadWord<std::uint32_t>(p + pos);
    if (typeOf(head) > kMaxType) {
      return fail(Fault::kBadType, pos, typeOf(head));
    }
    pos += MIN_TLV_SIZE;
    // A cell that runs into the next record is refused although its bytes are there: accepting it
    // would let few bytes on the wire unfold into very many in memory.
    if (lengthOf(head) + pos > end) {
      return fail(Fault::kCellTooLong, pos, lengthOf(head));
    }
    pos += lengthOf(head);
  }
  return found;
}

std::unique_ptr<CTLVRecordV3> RecordCodec::build(const unsigned char* p, unsigned int remain,
                                                 const RecordScan& scan) noexcept {
  auto record = CTLVRecordV3::create(loadWord<std::uint64_t>(p), scan.cells);
  if (record == nullptr) {
    return nullptr;
  }
  const unsigned char* in = p + MIN_RECORD_SIZE;
  const unsigned char* const end = p + remain;
  for (unsigned int left = scan.cells; left > 0;) {
    if (record->last_->full() && !record->makeRoom(left)) {
      return nullptr;
    }
    if (!fillBlock(*record->last_, left, in, end, record->sweep_)) {
      return nullptr;
    }
  }
  record->length_ = scan.recordLength;
  return record;
}

/// Makes cells from the bytes at `in` until the block is full or none is `left`; `end` bounds what
/// may be read.
bool RecordCodec::fillBlock(CellBlock& block, unsigned int& left, const unsigned char*& in,
                            const unsigned char* end, bool& sweep) noexcept {
  constexpr auto kPlace = CTLVCell::Place::kInBlock;
  CTLVCell* slot = block.end();
  CTLVCell* const limit = slot + std::min<std::ptrdiff_t>(left, block.limit() - slot);
  left -= static_cast<unsigned int>(limit - slot);
  for (; slot != limit; ++slot) {
    const auto head = loadWord<std::uint32_t>(in);
    const unsigned int length = lengthOf(head);
    in += MIN_TLV_SIZE;
    if (length - 1 < 8 && end - in >= 8) {
      const std::uint64_t keep = ~0ULL >> (8 - length) * 8;
      ::new (slot) CTLVCell(kPlace, head, loadWord<std::uint64_t>(in) & keep);
    } else if (length - 1 < CTLVCell::kInside) {
      ::new (slot) CTLVCell(kPlace, head, 0);
      copySmall(slot->value_, in, length, false);
    } else {
      // As CTLVCell::setCell(): an empty value leaves the new cell's tag and type as they are.
      ::new (slot) CTLVCell(kPlace);
      sweep = sweep || length > 0;
      if (length > 0 && !slot->replace(head & 0xFFFF, in, length, false)) {
        block.setEnd(slot);
        return false;
      }
    }
    in += length;
  }
  block.setEnd(limit);
  return true;
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
