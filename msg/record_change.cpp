// How a record learns of changes that are made through references to its cells, and the operations
// that change cells in their places.
#include <qovpub/qov_message_package.h>

#include <utility>

#include "msg/tag_index.h"

std::atomic<std::uint64_t> qov::RecordCells::changesOfGiven_{0};

void qov::CellValue::tellRecord(std::uint32_t headBefore) noexcept {
  if (qov::CellBlock* block = qov::CellBlock::of(this); block != nullptr) {
    block->record()->takeChange(*this, headBefore);
  } else {
    qov::RecordCells::changesOfGiven_.fetch_add(1, std::memory_order_relaxed);
  }
}

void qov::CellValue::leaveBlock() noexcept {
  qov::CellBlock::of(this)->record()->sweep_ = true;
}

void qov::RecordCells::takeChange(const CellValue& cell, std::uint32_t headBefore) noexcept {
  constexpr std::uint32_t kTag = 0xFFF0;
  length_ += cell.length();
  length_ -= headBefore >> 16;
  sweep_ = sweep_ || cell.outside();
  if (((cell.head_ ^ headBefore) & kTag) != 0) {
    dropIndex();
  }
}

void qov::RecordCells::refresh() noexcept {
  if (stale()) {
    seen_ = changesOfGiven_.load(std::memory_order_relaxed);
    length_ = measure();
    dropIndex();
  }
}

void qov::RecordCells::dropIndex() noexcept {
  delete index_.exchange(nullptr, std::memory_order_relaxed);
}

bool CTLVRecordV3::replace(CTLVCell&& cell) {
  CTLVCell* there = find(cell.tag());
  if (there == nullptr) {
    return false;
  }
  const unsigned long replaced = length() - there->length() + cell.length();
  if (replaced > kMaxLength) {
    throwTooLong(replaced);
  }
  cell.ownValueOrThrow();
  *there = std::move(cell);
  return true;
}

qov::RecordCells::Iterator qov::RecordCells::erase(Iterator at) noexcept {
  refresh();
  CTLVCell* const cell = qov::CellBlock::cellAt(at.slot_);
  length_ -= MIN_TLV_SIZE + cell->length();
  if (cell != at.slot_) {
    delete cell;
  } else if (cell->lent()) {
    // Its room is lost until the package is cleared, so the record is given no more of that.
    store_->close(*this);
  } else {
    cell->freeValue();
  }
  dropIndex();
  at.block_->remove(at.slot_);
  const Iterator next(at.block_, at.slot_);
  if (at.block_->begin() == at.block_->end() && at.block_ != last_) {
    dropBlock(at.block_);
  }
  return next;
}

/// Takes out a block without cells that is not the last one: a record whose cells come and go would
/// grow. The memory of a package's block is lost until the package is cleared, so the record is
/// given no more of those.
void qov::RecordCells::dropBlock(qov::CellBlock* block) noexcept {
  qov::CellBlock* const next = block->next();
  qov::CellBlock* before = nullptr;
  bool own = block == own_;
  for (qov::CellBlock* each = first_; each != block; each = each->next()) {
    before = each;
    own = own || each == own_;
  }
  if (before == nullptr) {
    first_ = next;
  } else {
    before->setNext(next);
  }
  if (!own) {
    store_->close(*this);
    return;
  }
  own_ = block == own_ ? next : own_;
  block->setNext(nullptr);
  qov::CellBlock::freeAll(block);
}

unsigned long CTLVRecordV3::erase(unsigned short tag) noexcept {
  unsigned long erased = 0;
  for (iterator at = begin(); at != end();) {
    if (at->tag() == tag) {
      at = erase(at);
      ++erased;
    } else {
      ++at;
    }
  }
  return erased;
}
