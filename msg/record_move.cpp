// Records that change places: with each other, out of a package's memory, or with that memory.
#include <qovpub/qov_msg.h>

#include <algorithm>
#include <utility>

#include "msg/relocation.h"
#include "msg/tag_index.h"

CTLVRecordV3& CTLVRecordV3::operator=(CTLVRecordV3&& other) noexcept {
  if (this != &other) {
    CTLVRecordV3 taken(std::move(other));
    cmd_ = taken.cmd_;
    swapCells(taken);
  }
  return *this;
}

void qov::RecordCells::swapCells(RecordCells& other) noexcept {
  std::swap(first_, other.first_);
  std::swap(last_, other.last_);
  std::swap(open_, other.open_);
  std::swap(own_, other.own_);
  std::swap(length_, other.length_);
  std::swap(seen_, other.seen_);
  std::swap(given_, other.given_);
  std::swap(sweep_, other.sweep_);
  std::swap(large_, other.large_);
  // Nobody else uses either record now: there is no need for an exchange that others see whole.
  qov::TagIndex* const index = index_.load(std::memory_order_relaxed);
  index_.store(other.index_.load(std::memory_order_relaxed), std::memory_order_relaxed);
  other.index_.store(index, std::memory_order_relaxed);
  claimBlocks();
  other.claimBlocks();
}

void qov::RecordCells::claimBlocks() noexcept {
  for (qov::CellBlock* block = first_; block != nullptr; block = block->next()) {
    block->setRecord(this);
  }
}

void qov::RecordCells::take(RecordCells& other) noexcept {
  const bool inPackage = other.first_ != other.own_;
  if (!inPackage || other.leavePackage()) {
    swapCells(other);
  }
}

/// Moves the cells into blocks of the record's own. Returns false, and leaves them where they are,
/// when there is no memory.
bool qov::RecordCells::leavePackage() noexcept {
  for (CTLVCell& cell : *this) {
    if (!cell.ownValue()) {
      return false;
    }
  }
  RecordCells moved;
  moved.large_ = large_;
  unsigned long left = count();
  while (left > 0) {
    if (!moved.makeRoom(left)) {
      return false;
    }
    left -= std::min<unsigned long>(left, qov::CellBlock::kMaxCells);
  }
  qov::CellBlock* to = moved.first_;
  for (qov::CellBlock* from = first_; from != nullptr; from = from->next()) {
    for (const CTLVCell* slot = from->begin(); slot != from->end(); ++slot) {
      to = to->full() ? to->next() : to;
      CTLVCell* const free = to->end();
      to->relocate(free, slot);
      to->setEnd(free + 1);
    }
    from->setEnd(from->begin());
  }
  moved.length_ = length_;
  moved.seen_ = seen_;
  moved.given_ = std::exchange(given_, false);
  moved.sweep_ = std::exchange(sweep_, false);
  if (moved.given_) {
    moved.open_ = &qov::CellBlock::full_;
  }
  swapCells(moved);
  return true;
}

void qov::RecordCells::follow(const qov::Relocation& moved) noexcept {
  moved(first_);
  moved(last_);
  moved(open_);
  for (qov::CellBlock* block = first_; block != nullptr; block = block->next()) {
    qov::CellBlock* next = block->next();
    moved(next);
    block->setNext(next);
    for (CTLVCell* slot = block->begin(); slot != block->end(); ++slot) {
      if (slot->lent()) {
        auto* value = slot->pointer<unsigned char>();
        moved(value);
        slot->storePointer(value, true);
      }
    }
  }
  claimBlocks();
  dropIndex();
}
