// How a record learns of changes that are made through references to its cells, and the operations
// that change cells in their places.
#include <qovpub/qov_msg.h>

#include <utility>

#include "msg/tag_index.h"

std::atomic<std::uint32_t> CTLVRecordV3::changesOfGiven_{0};

void CTLVCell::tellRecord(std::uint32_t headBefore) noexcept {
  if (qov::CellBlock* block = qov::CellBlock::of(this); block != nullptr) {
    block->record()->takeChange(*this, headBefore);
  } else {
    CTLVRecordV3::changesOfGiven_.fetch_add(1, std::memory_order_relaxed);
  }
}

void CTLVRecordV3::takeChange(const CTLVCell& cell, std::uint32_t headBefore) noexcept {
  constexpr std::uint32_t kTag = 0xFFF0;
  length_ += cell.length();
  length_ -= headBefore >> 16;
  sweep_ = sweep_ || cell.outside();
  if (((cell.head_ ^ headBefore) & kTag) != 0) {
    dropIndex();
  }
}

void CTLVRecordV3::refresh() noexcept {
  if (stale()) {
    seen_ = changesOfGiven_.load(std::memory_order_relaxed);
    length_ = measure();
    dropIndex();
  }
}

void CTLVRecordV3::dropIndex() noexcept {
  delete index_.exchange(nullptr, std::memory_order_relaxed);
}

bool CTLVRecordV3::replace(CTLVCell cell) {
  CTLVCell* there = find(cell.tag());
  if (there == nullptr) {
    return false;
  }
  const unsigned long replaced = length() - there->length() + cell.length();
  if (replaced > kMaxLength) {
    throwTooLong(replaced);
  }
  *there = std::move(cell);
  return true;
}

CTLVRecordV3::iterator CTLVRecordV3::erase(iterator at) noexcept {
  refresh();
  CTLVCell* const cell = resolve(at.slot_);
  length_ -= MIN_TLV_SIZE + cell->length();
  if (cell != at.slot_) {
    delete cell;
  } else {
    cell->freeValue();
  }
  dropIndex();
  // The cells that move know their places from here on.
  at.block_->setRecord(this);
  at.block_->remove(at.slot_);
  return {this, at.block_, at.slot_};
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
