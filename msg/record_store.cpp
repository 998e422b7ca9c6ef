#include <qovpub/qov_message_package.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "msg/relocation.h"

namespace qov {

RecordStore& RecordStore::operator=(RecordStore&& other) noexcept {
  if (this != &other) {
    clear();
    take(other);
  }
  return *this;
}

/// Into a store that is empty.
void RecordStore::take(RecordStore& other) noexcept {
  const Relocation moved(other.memory_, memory_, kInsideBytes);
  std::memcpy(memory_, other.memory_, kInsideBytes);
  if (other.records_ == other.inside_) {
    std::copy(other.begin(), other.end(), inside_);
  } else {
    records_ = other.records_;
  }
  size_ = other.size_;
  capacity_ = other.capacity_;
  open_ = other.open_;
  room_ = other.room_;
  roomEnd_ = other.roomEnd_;
  pieces_ = other.pieces_;
  other.forget();
  moved(open_);
  moved(room_);
  moved(roomEnd_);
  for (std::size_t i = 0; i < size_; ++i) {
    if (moved(records_[i])) {
      records_[i]->follow(moved);
    }
    if (records_[i]->store_ != nullptr) {
      records_[i]->store_ = this;
    }
  }
}

/// Is empty from here on, and frees nothing.
void RecordStore::forget() noexcept {
  records_ = inside_;
  size_ = 0;
  capacity_ = kInsideRecords;
  open_ = nullptr;
  room_ = memory_;
  roomEnd_ = memory_ + kInsideBytes;
  pieces_ = nullptr;
}

bool RecordStore::growTable(std::size_t capacity) noexcept {
  capacity = std::max(capacity, 4 * capacity_);
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
    room_ = reinterpret_cast<unsigned char*>(open_->end());
    roomEnd_ = reinterpret_cast<unsigned char*>(open_->lastPlace() + 1);
    open_->close();
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

bool RecordStore::extend(RecordCells& record) noexcept {
  if (open_ == nullptr || record.last_ != open_ || !addPiece()) {
    return false;
  }
  record.addBlock(openBlock());
  return true;
}

void RecordStore::close(const RecordCells& record) noexcept {
  if (record.last_ == open_) {
    closeNewest();
  }
}

inline void RecordStore::destroy(CTLVRecordV3* record) noexcept {
  if (record->store_ == nullptr) {
    delete record;
  } else {
    record->~CTLVRecordV3();
  }
}

void RecordStore::free(CTLVRecordV3* record) noexcept {
  close(*record);
  destroy(record);
}

void RecordStore::erase(std::size_t i) noexcept {
  free(records_[i]);
  std::copy(records_ + i + 1, records_ + size_, records_ + i);
  --size_;
}

void RecordStore::replace(std::size_t i, CTLVRecordV3* record) noexcept {
  free(records_[i]);
  record->owned_ = true;
  records_[i] = record;
}

void RecordStore::clear() noexcept {
  for (CTLVRecordV3* record : *this) {
    destroy(record);
  }
  while (pieces_ != nullptr) {
    Piece* next = pieces_->next;
    ::operator delete(pieces_);
    pieces_ = next;
  }
  if (records_ != inside_) {
    delete[] records_;
  }
  forget();
}

}  // namespace qov
