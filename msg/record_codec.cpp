#include "msg/record_codec.h"

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

std::unique_ptr<CTLVRecordV3> RecordCodec::build(const unsigned char* p,
                                                 const RecordScan& scan) noexcept {
  auto record = CTLVRecordV3::create(loadWord<std::uint64_t>(p), scan.cells);
  if (record == nullptr) {
    return nullptr;
  }
  const unsigned char* in = p + MIN_RECORD_SIZE;
  for (unsigned int left = scan.cells; left > 0; --left) {
    if (record->room_ == record->roomEnd_ && !record->makeRoom(left)) {
      return nullptr;
    }
    const auto head = loadWord<std::uint32_t>(in);
    in += MIN_TLV_SIZE;
    auto* cell = ::new (record->room_) CTLVCell(CTLVCell::Place::kInBlock);
    // As CTLVCell::setCell(): an empty value leaves the new cell's tag and type as they are.
    const auto length = static_cast<unsigned short>(lengthOf(head));
    if (length > 0) {
      if (!cell->replaceValue(in, length, false)) {
        return nullptr;
      }
      cell->typeTag_ = static_cast<unsigned short>(head);
      in += length;
    }
    ++record->room_;
    record->link(cell);
  }
  return record;
}

unsigned char* RecordCodec::write(const CTLVRecordV3& record, unsigned char* out) noexcept {
  unsigned char* const start = out;
  storeWord(out, record.cmd_);
  out += MIN_RECORD_SIZE;
  for (const CTLVCell* cell = record.first_; cell != nullptr; cell = cell->next_) {
    storeWord(out, cell->typeTag_);
    storeWord(out + 2, cell->length_);
    out += MIN_TLV_SIZE;
    std::memcpy(out, cell->value(), cell->length_);
    out += cell->length_;
  }
  storeWord(start + kLengthAt, static_cast<std::uint16_t>(out - start - MIN_RECORD_SIZE));
  return out;
}

}  // namespace qov
