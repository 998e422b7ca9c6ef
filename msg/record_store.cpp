#include <qovpub/qov_message_package.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace qov {

bool RecordStore::growTable(std::size_t capacity) noexcept {
  capacity = std::max(capacity, 2 * capacity_);
  auto** table = new (std::nothrow) CTLVRecordV3*[capacity];
  if (table == nullptr) {
    errno = ENOMEM;
    return false;
  }
  std::copy(begin(), end(), table);
  if (records_ != inside_) {
    delete[] records_;
  }
  records_ = table;
  capacity_ = capacity;
  return true;
}

bool RecordStore::addPiece() noexcept {
  void* memory = ::operator new(CellBlock::kMaxBytes, std::nothrow);
  if (memory == nullptr) {
    errno = ENOMEM;
    return false;
  }
  pieces_ = ::new (memory) Piece{pieces_};
  room_ = static_cast<unsigned char*>(memory) + sizeof(Piece);
  roomEnd_ = static_cast<unsigned char*>(memory) + CellBlock::kMaxBytes;
  return true;
}

/// Takes back what the newest record has not used.
void RecordStore::closeNewest() noexcept {
  if (open_ != nullptr) {
    open_->close();
    room_ = reinterpret_cast<unsigned char*>(open_->end());
    open_ = nullptr;
  }
}

CellBlock* RecordStore::openBlock() noexcept {
  open_ = CellBlock::makeIn(room_, static_cast<std::size_t>(roomEnd_ - room_));
  return open_;
}

bool RecordStore::add(CTLVRecordV3* record) noexcept {
  if (!reserve(1)) {
    return false;
  }
  record->owned_ = true;
  records_[size_++] = record;
  return true;
}

CTLVRecordV3* RecordStore::make(std::uint64_t cmd) noexcept {
  constexpr std::ptrdiff_t kLeast = sizeof(CTLVRecordV3) + sizeof(CellBlock) + 4 * sizeof(CTLVCell);
  closeNewest();
  if (!reserve(1) || (roomEnd_ - room_ < kLeast && !addPiece())) {
    return nullptr;
  }
  void* memory = room_;
  room_ += sizeof(CTLVRecordV3);
  auto* record = ::new (memory) CTLVRecordV3(cmd, this, openBlock());
  records_[size_++] = record;
  return record;
}

bool RecordStore::extend(CTLVRecordV3& record) noexcept {
  if (open_ == nullptr || record.last_ != open_ || !addPiece()) {
    return false;
  }
  record.addBlock(openBlock());
  return true;
}

void RecordStore::clear() noexcept {
  for (CTLVRecordV3* record : *this) {
    if (record->store_ != nullptr) {
      record->~CTLVRecordV3();
    } else {
      delete record;
    }
  }
  size_ = 0;
  while (pieces_ != nullptr) {
    Piece* next = pieces_->next;
    ::operator delete(pieces_);
    pieces_ = next;
  }
  if (records_ != inside_) {
    delete[] records_;
    records_ = inside_;
    capacity_ = kInsideRecords;
  }
  open_ = nullptr;
  room_ = memory_;
  roomEnd_ = memory_ + kInsideBytes;
}

}  // namespace qov
