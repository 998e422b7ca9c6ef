#include <qovpub/qov_exception.h>
#include <qovpub/qov_message_package.h>

#include <algorithm>
#include <new>
#include <utility>

#include "msg/tag_index.h"

unsigned long CTLVRecordV3::count() const noexcept {
  unsigned long cells = 0;
  for (qov::CellBlock* block = first_; block != nullptr; block = block->next()) {
    cells += static_cast<unsigned long>(block->end() - block->begin());
  }
  return cells;
}

void CTLVRecordV3::addBlock(qov::CellBlock* block) noexcept {
  if (last_ == nullptr) {
    first_ = block;
  } else {
    last_->setNext(block);
    large_ = large_ || count() > kScanLimit;
  }
  last_ = block;
  open_ = large_ || loose_ ? &qov::CellBlock::full_ : block;
}

/// Room for some more cells, for `cells` if it is known how many are to come.
bool CTLVRecordV3::makeRoom(unsigned long cells) noexcept {
  constexpr unsigned long kFirst = 4;
  if (store_ != nullptr && store_->extend(*this)) {
    return true;
  }
  qov::CellBlock* block = qov::CellBlock::make(cells != 0 ? cells : std::max(kFirst, count()));
  if (block == nullptr) {
    return false;
  }
  addBlock(block);
  own_ = own_ == nullptr ? block : own_;
  return true;
}

void CTLVRecordV3::makeRoomOrThrow() {
  if (!makeRoom(0)) {
    throw std::bad_alloc();
  }
}

void CTLVRecordV3::append_int(const CTLVCell* cell) {
  if (cell == nullptr) {
    return;
  }
  if (cell->place_ != CTLVCell::Place::kAlone) {
    throw CQOV_Exception("cell belongs to a record already, tag is " + std::to_string(cell->tag()));
  }
  auto* standIn = ::new (slot()) CTLVCell(CTLVCell::Place::kStandIn);
  // The record owns the cell from here on, and whoever made it may still change it.
  CTLVCell* own = loosen(cell);
  own->place_ = CTLVCell::Place::kAdopted;
  standIn->storePointer(own);
  commit(standIn, length_ + MIN_TLV_SIZE + own->length());
  index(standIn);
}

CTLVRecordV3& CTLVRecordV3::add(CTLVCell cell) {
  const unsigned long grown = grownLength(cell.length());
  auto* own = ::new (slot()) CTLVCell(CTLVCell::Place::kInBlock);
  *own = std::move(cell);
  sweep_ = sweep_ || own->outside();
  commit(own, grown);
  index(own);
  return *this;
}

/// Adds any cell, or throws.
CTLVRecordV3& CTLVRecordV3::addChecked(unsigned int type, unsigned short tag, const void* data,
                                       unsigned long len, bool nul) {
  const unsigned short typeTag = CTLVCell::packed(type, tag);
  CTLVCell::checkLength(len, nul);
  const unsigned long grown = grownLength(len + (nul ? 1 : 0));
  auto* cell = ::new (slot()) CTLVCell(CTLVCell::Place::kInBlock);
  if (!cell->replace(typeTag, data, static_cast<unsigned int>(len), nul)) {
    throw std::bad_alloc();
  }
  sweep_ = sweep_ || cell->outside();
  commit(cell, grown);
  index(cell);
  return *this;
}

void CTLVRecordV3::throwTooLong(unsigned long length) {
  throw CQOV_Exception("record is too long, length is " + std::to_string(length));
}

void CTLVRecordV3::addToIndex(CTLVCell* cell) noexcept {
  qov::TagIndex* index = index_.load(std::memory_order_relaxed);
  if (index != nullptr && !index->insert(cell)) {
    index_.store(nullptr, std::memory_order_relaxed);
    delete index;
  }
}

/// Null when there is no memory. Several threads may get here at once; the first one's index stays.
qov::TagIndex* CTLVRecordV3::buildIndex() const noexcept {
  std::unique_ptr<qov::TagIndex> built(new (std::nothrow) qov::TagIndex());
  for (auto cell = begin(); cell != end() && built != nullptr; ++cell) {
    if (!built->insert(const_cast<CTLVCell*>(&*cell))) {
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

const CTLVCell* CTLVRecordV3::scan(unsigned short tag) const noexcept {
  for (const CTLVCell& cell : *this) {
    if (cell.tag() == tag) {
      return &cell;
    }
  }
  return nullptr;
}

unsigned long CTLVRecordV3::measure() const noexcept {
  unsigned long sum = 0;
  for (const CTLVCell& cell : *this) {
    sum += MIN_TLV_SIZE + cell.length();
  }
  return sum;
}

/// Into a record that nobody has looked anything up in: it has no index.
void CTLVRecordV3::addCopies(const CTLVRecordV3& other) {
  for (const CTLVCell& cell : other) {
    auto* own = ::new (slot()) CTLVCell(CTLVCell::Place::kInBlock);
    *own = cell;
    sweep_ = sweep_ || own->outside();
    commit(own, length_ + MIN_TLV_SIZE + own->length());
  }
}

void CTLVRecordV3::clone(const CTLVRecordV3& other) {
  CTLVRecordV3 copy(other.cmd_);
  if (!copy.makeRoom(other.count())) {
    throw std::bad_alloc();
  }
  copy.addCopies(other);
  cmd_ = copy.cmd_;
  swapCells(copy);
}

void CTLVRecordV3::swapCells(CTLVRecordV3& other) noexcept {
  std::swap(first_, other.first_);
  std::swap(last_, other.last_);
  std::swap(open_, other.open_);
  std::swap(own_, other.own_);
  std::swap(length_, other.length_);
  std::swap(loose_, other.loose_);
  std::swap(sweep_, other.sweep_);
  std::swap(large_, other.large_);
  other.index_.store(index_.exchange(other.index_.load()));
}

void CTLVRecordV3::clear() noexcept {
  CTLVRecordV3 empty;
  swapCells(empty);
}

void CTLVRecordV3::freeBlocks() noexcept {
  qov::CellBlock::freeAll(own_);
  delete index_.load(std::memory_order_relaxed);
}

void CTLVRecordV3::freeValues() noexcept {
  for (qov::CellBlock* block = first_; block != nullptr; block = block->next()) {
    for (CTLVCell* slot = block->begin(); slot != block->end(); ++slot) {
      if (slot->place_ == CTLVCell::Place::kStandIn) {
        delete slot->pointer<CTLVCell>();
      } else {
        slot->freeValue();
      }
    }
  }
}

void CTLVRecordV3::throwMissing(unsigned short tag) {
  throw CQOV_Exception("tag don't exist, tag is " + std::to_string(tag));
}
