#include <qovpub/qov_exception.h>
#include <qovpub/qov_msg.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "msg/cell_block.h"
#include "msg/tag_index.h"

static_assert(sizeof(CTLVCell) == 32, "what a block holds is reckoned with this");
static_assert(sizeof(CTLVRecordV3) % alignof(CTLVCell) == 0, "cells stand behind the record");

std::unique_ptr<CTLVRecordV3> CTLVRecordV3::create(std::uint64_t cmd, unsigned long cells) {
  cells = std::min(cells, qov::CellBlock::capacity(sizeof(CTLVRecordV3)));
  void* memory = ::operator new(sizeof(CTLVRecordV3) + cells * sizeof(CTLVCell), std::nothrow);
  if (memory == nullptr) {
    errno = ENOMEM;
    return nullptr;
  }
  auto* record = ::new (memory) CTLVRecordV3(cmd);
  record->room_ = static_cast<CTLVCell*>(static_cast<void*>(record + 1));
  record->roomEnd_ = record->room_ + cells;
  return std::unique_ptr<CTLVRecordV3>(record);
}

bool CTLVRecordV3::makeRoom(unsigned long cells) noexcept {
  qov::CellBlock* block = qov::CellBlock::make(blocks_, cells);
  if (block == nullptr) {
    errno = ENOMEM;
    return false;
  }
  blocks_ = block;
  room_ = static_cast<CTLVCell*>(block->cells());
  roomEnd_ = room_ + cells;
  return true;
}

/// A cell in the record's room that does not belong to the record yet: if its value cannot be set,
/// the next one takes its place.
CTLVCell* CTLVRecordV3::newCell() {
  constexpr unsigned long kFirst = 4;
  if (room_ == roomEnd_ && !makeRoom(std::max(kFirst, count_))) {
    throw std::bad_alloc();
  }
  return ::new (room_) CTLVCell(CTLVCell::Place::kInBlock);
}

void CTLVRecordV3::addNew(CTLVCell* cell) {
  const unsigned long size = MIN_TLV_SIZE + cell->length_;
  if (length_ + size > kMaxLength && length() + size > kMaxLength) {
    cell->freeValue();
    throw CQOV_Exception("record is too long, length is " + std::to_string(length() + size));
  }
  ++room_;
  link(cell);
}

void CTLVRecordV3::link(CTLVCell* cell) noexcept {
  (last_ == nullptr ? first_ : last_->next_) = cell;
  last_ = cell;
  length_ += MIN_TLV_SIZE + cell->length_;
  sweep_ = sweep_ || cell->outside();
  if (++count_ > kScanLimit) {
    addToIndex(cell);
  }
}

void CTLVRecordV3::append_int(const CTLVCell* cell) {
  if (cell == nullptr) {
    return;
  }
  if (cell->place_ != CTLVCell::Place::kAlone) {
    throw CQOV_Exception("cell belongs to a record already, tag is " + std::to_string(cell->tag()));
  }
  // The record owns the cell from here on, and whoever made it may still hold a pointer to it.
  auto* own = const_cast<CTLVCell*>(cell);
  own->place_ = CTLVCell::Place::kAdopted;
  link(loosen(own));
}

CTLVRecordV3& CTLVRecordV3::addUnsigned(unsigned short tag, std::uint64_t v) {
  CTLVCell* cell = newCell();
  cell->setUnsigned(tag, v);
  addNew(cell);
  return *this;
}

CTLVRecordV3& CTLVRecordV3::addSigned(unsigned short tag, std::int64_t v) {
  CTLVCell* cell = newCell();
  cell->setSigned(tag, v);
  addNew(cell);
  return *this;
}

CTLVRecordV3& CTLVRecordV3::addBool(unsigned short tag, bool v) {
  CTLVCell* cell = newCell();
  cell->setBool(tag, v);
  addNew(cell);
  return *this;
}

CTLVRecordV3& CTLVRecordV3::addEnum(unsigned short tag, std::uint64_t v) {
  CTLVCell* cell = newCell();
  cell->setEnum(tag, v);
  addNew(cell);
  return *this;
}

CTLVRecordV3& CTLVRecordV3::addTime(unsigned short tag, std::uint64_t v) {
  CTLVCell* cell = newCell();
  cell->setTime(tag, v);
  addNew(cell);
  return *this;
}

CTLVRecordV3& CTLVRecordV3::addString(unsigned short tag, std::string_view text) {
  CTLVCell* cell = newCell();
  cell->setString(tag, text);
  addNew(cell);
  return *this;
}

CTLVRecordV3& CTLVRecordV3::addOctets(unsigned short tag, const void* data, unsigned long len) {
  CTLVCell* cell = newCell();
  cell->setOctets(tag, data, len);
  addNew(cell);
  return *this;
}

CTLVRecordV3& CTLVRecordV3::add(const CTLVCell& cell) {
  CTLVCell* copy = newCell();
  *copy = cell;
  addNew(copy);
  return *this;
}

void CTLVRecordV3::addToIndex(CTLVCell* cell) noexcept {
  qov::TagIndex* index = index_.load(std::memory_order_relaxed);
  if (index != nullptr && !index->insert(cell)) {
    index_.store(nullptr, std::memory_order_relaxed);
    delete index;
  }
}

/// Null when there is no memory; several threads may get here at once, one index stays.
qov::TagIndex* CTLVRecordV3::buildIndex() const noexcept {
  std::unique_ptr<qov::TagIndex> built(new (std::nothrow) qov::TagIndex());
  for (CTLVCell* cell = first_; cell != nullptr && built != nullptr; cell = cell->next_) {
    if (!built->insert(cell)) {
      built.reset();
    }
  }
  qov::TagIndex* there = nullptr;
  if (built != nullptr && index_.compare_exchange_strong(there, built.get())) {
    return built.release();
  }
  return there;
}

const CTLVCell* CTLVRecordV3::findIndexed(unsigned short tag) const noexcept {
  const qov::TagIndex* index = index_.load(std::memory_order_acquire);
  if (index == nullptr) {
    index = buildIndex();
  }
  const CTLVCell* cell = index == nullptr ? nullptr : index->find(tag);
  const bool found = cell != nullptr && cell->tag() == tag;
  if (found || (index != nullptr && !loose_)) {
    return cell;
  }
  // A tag may have been changed since.
  return scan(tag);
}

unsigned long CTLVRecordV3::measure() const noexcept {
  unsigned long sum = 0;
  for (const CTLVCell* cell = first_; cell != nullptr; cell = cell->next_) {
    sum += MIN_TLV_SIZE + cell->length_;
  }
  return sum;
}

void CTLVRecordV3::clone(const CTLVRecordV3& other) {
  CTLVRecordV3 copy(other.cmd_);
  if (other.count_ > 0 && !copy.makeRoom(other.count_)) {
    throw std::bad_alloc();
  }
  for (const CTLVCell& cell : other) {
    CTLVCell* own = copy.newCell();
    *own = cell;
    ++copy.room_;
    copy.link(own);
  }
  cmd_ = copy.cmd_;
  swapCells(copy);
}

void CTLVRecordV3::swapCells(CTLVRecordV3& other) noexcept {
  std::swap(first_, other.first_);
  std::swap(last_, other.last_);
  std::swap(room_, other.room_);
  std::swap(roomEnd_, other.roomEnd_);
  std::swap(blocks_, other.blocks_);
  std::swap(count_, other.count_);
  std::swap(length_, other.length_);
  std::swap(loose_, other.loose_);
  std::swap(sweep_, other.sweep_);
  other.index_.store(index_.exchange(other.index_.load()));
}

void CTLVRecordV3::clear() noexcept {
  CTLVRecordV3 empty;
  swapCells(empty);
}

void CTLVRecordV3::freeCells() noexcept {
  if (loose_ || sweep_) {
    for (CTLVCell* cell = first_; cell != nullptr;) {
      CTLVCell* next = cell->next_;
      if (cell->place_ == CTLVCell::Place::kAdopted) {
        delete cell;
      } else {
        cell->freeValue();
      }
      cell = next;
    }
  }
  qov::CellBlock::freeAll(blocks_);
  delete index_.load(std::memory_order_relaxed);
}

void CTLVRecordV3::throwMissing(unsigned short tag) {
  throw CQOV_Exception("tag don't exist, tag is " + std::to_string(tag));
}
