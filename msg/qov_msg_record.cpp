#include <qovpub/qov_exception.h>
#include <qovpub/qov_message_package.h>

#include <algorithm>
#include <new>
#include <utility>

#include "msg/tag_index.h"

unsigned long qov::RecordCells::count() const noexcept {
  unsigned long cells = 0;
  for (qov::CellBlock* block = first_; block != nullptr; block = block->next()) {
    cells += static_cast<unsigned long>(block->end() - block->begin());
  }
  return cells;
}

void qov::RecordCells::addBlock(qov::CellBlock* block) noexcept {
  if (last_ == nullptr) {
    first_ = block;
  } else {
    last_->setNext(block);
    large_ = large_ || count() > kScanLimit;
  }
  last_ = block;
  block->setRecord(this);
  open_ = large_ || given_ ? &qov::CellBlock::full_ : block;
}

bool qov::RecordCells::makeRoom(unsigned long cells) noexcept {
  constexpr unsigned long kFirst = 4;
  if (store_ != nullptr && store_->extend(*this)) {
    return true;
  }
  if (cells == 0) {
    cells = large_ ? qov::CellBlock::kMaxCells : std::max(kFirst, count());
  }
  qov::CellBlock* block = qov::CellBlock::make(cells);
  if (block == nullptr) {
    return false;
  }
  addBlock(block);
  own_ = own_ == nullptr ? block : own_;
  return true;
}

void qov::RecordCells::makeRoomOrThrow() {
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
  auto* own = const_cast<CTLVCell*>(cell);
  own->place_ = CTLVCell::Place::kAdopted;
  standIn->storePointer(own);
  if (!given_) {
    given_ = true;
    seen_ = changesOfGiven_.load(std::memory_order_relaxed);
    open_ = &qov::CellBlock::full_;
  }
  refresh();
  commit(standIn, length_ + MIN_TLV_SIZE + own->length());
}

void qov::RecordCells::put(CTLVCell&& cell) {
  CTLVCell* free = slot();
  ::new (free) CTLVCell(last_->placeOf(free), std::move(cell));
  commit(free, length_ + MIN_TLV_SIZE + free->length());
}

CTLVRecordV3& CTLVRecordV3::add(CTLVCell&& cell) {
  checkGrown(cell.length());
  cell.ownValueOrThrow();
  put(std::move(cell));
  return *this;
}

void qov::RecordCells::addLong(unsigned int type, unsigned short tag, const void* data,
                               unsigned long len, bool nul) {
  const unsigned long total = len + (nul ? 1 : 0);
  const unsigned int head =
      static_cast<unsigned int>(tag) << 4 | type | static_cast<unsigned int>(total) << 16;
  if (total > CTLVCell::kInside && len <= kMaxLength && lender() != nullptr && fits(tag, total) &&
      open_->makeLong(open_->end(), head, data, static_cast<unsigned int>(len))) {
    commitFitting(length_ + MIN_TLV_SIZE + total);
    return;
  }
  addChecked(type, tag, data, len, nul);
}

void qov::RecordCells::addChecked(unsigned int type, unsigned short tag, const void* data,
                                  unsigned long len, bool nul) {
  const unsigned short typeTag = CTLVCell::packed(type, tag);
  CTLVCell::checkLength(len, nul);
  checkGrown(len + (nul ? 1 : 0));
  CTLVCell cell;
  cell.replaceOrThrow(typeTag, data, len, nul);
  put(std::move(cell));
}

CTLVRecordV3& CTLVRecordV3::addOctets(unsigned short tag, std::unique_ptr<unsigned char[]> data,
                                      unsigned long len) {
  CTLVCell cell;
  cell.setOctets(tag, std::move(data), len);
  return add(std::move(cell));
}

void qov::RecordCells::throwTooLong(unsigned long length) {
  throw CQOV_Exception("record is too long, length is " + std::to_string(length));
}

void qov::RecordCells::addToIndex(CTLVCell* cell) noexcept {
  qov::TagIndex* index = index_.load(std::memory_order_relaxed);
  if (index != nullptr && !index->insert(cell)) {
    index_.store(nullptr, std::memory_order_relaxed);
    delete index;
  }
}

/// Null when there is no memory. Several threads may get here at once; the first one's index stays.
qov::TagIndex* qov::RecordCells::buildIndex() const noexcept {
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

const CTLVCell* qov::RecordCells::findIndexed(unsigned short tag) const noexcept {
  if (stale()) {
    return scan(tag);
  }
  const qov::TagIndex* index = index_.load(std::memory_order_acquire);
  if (index == nullptr) {
    index = buildIndex();
  }
  return index == nullptr ? scan(tag) : index->find(tag);
}

/// By blocks: an iterator would load each block's end again for each cell. Not part of
/// findIndexed(), which would save registers for it in every call.
[[gnu::noinline]] const CTLVCell* qov::RecordCells::scan(unsigned short tag) const noexcept {
  for (qov::CellBlock* block = first_; block != nullptr; block = block->next()) {
    for (CTLVCell *slot = block->begin(), *end = block->end(); slot != end; ++slot) {
      const CTLVCell* cell = CellBlock::cellAt(slot);
      if (cell->tag() == tag) {
        return cell;
      }
    }
  }
  return nullptr;
}

const CTLVCell* CTLVRecordV3::findNext(const CTLVCell& cell) const noexcept {
  const unsigned short tag = cell.tag();
  for (const_iterator next = at(cell); next != end();) {
    if (++next != end() && next->tag() == tag) {
      return &*next;
    }
  }
  return nullptr;
}

CTLVRecordV3::const_iterator qov::RecordCells::at(const CTLVCell& cell) const noexcept {
  if (cell.place_ == CTLVCell::Place::kAdopted) {
    return std::find_if(begin(), end(), [&cell](const CTLVCell& each) { return &each == &cell; });
  }
  return {qov::CellBlock::of(&cell), const_cast<CTLVCell*>(&cell)};
}

unsigned long qov::RecordCells::measure() const noexcept {
  unsigned long sum = 0;
  for (const CTLVCell& cell : *this) {
    sum += MIN_TLV_SIZE + cell.length();
  }
  return sum;
}

void qov::RecordCells::addCopies(const RecordCells& other) {
  for (const CTLVCell& cell : other) {
    put(CTLVCell(cell));
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

void CTLVRecordV3::clear() noexcept {
  CTLVRecordV3 empty;
  swapCells(empty);
}

void qov::RecordCells::freeBlocks() noexcept {
  qov::CellBlock::freeAll(own_);
  delete index_.load(std::memory_order_relaxed);
}

void qov::RecordCells::freeValues() noexcept {
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

void qov::RecordCells::throwMissing(unsigned short tag) {
  throw CQOV_Exception("tag don't exist, tag is " + std::to_string(tag));
}
