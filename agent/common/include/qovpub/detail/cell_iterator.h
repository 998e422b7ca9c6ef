#ifndef QOVPUB_DETAIL_CELL_ITERATOR_H
#define QOVPUB_DETAIL_CELL_ITERATOR_H

#include <qovpub/detail/cell_block.h>
#include <qovpub/qov_msg_cell.h>

#include <cstddef>
#include <iterator>

namespace qov {

class RecordCells;

/// Forward iteration over the cells of a record in their order.
template <class Cell>
class CellIterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = CTLVCell;
  using difference_type = std::ptrdiff_t;
  using pointer = Cell*;
  using reference = Cell&;

  CellIterator() noexcept = default;
  Cell& operator*() const noexcept { return *CellBlock::cellAt(slot_); }
  Cell* operator->() const noexcept { return &**this; }
  CellIterator& operator++() noexcept {
    if (++slot_ == block_->end()) {
      enter(block_->next());
    }
    return *this;
  }
  CellIterator operator++(int) noexcept {
    CellIterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const CellIterator& other) const noexcept { return slot_ == other.slot_; }
  bool operator!=(const CellIterator& other) const noexcept { return slot_ != other.slot_; }

 private:
  friend class RecordCells;
  explicit CellIterator(CellBlock* block) noexcept { enter(block); }
  /// At `slot`, or at the first cell behind if `block` ends there.
  CellIterator(CellBlock* block, CTLVCell* slot) noexcept : slot_(slot), block_(block) {
    if (slot_ == block_->end()) {
      enter(block->next());
    }
  }
  /// A block may be empty: its record was closed or lost its cells, or could not set its first
  /// value.
  void enter(CellBlock* block) noexcept {
    while (block != nullptr && block->begin() == block->end()) {
      block = block->next();
    }
    block_ = block;
    slot_ = block != nullptr ? block->begin() : nullptr;
  }

  CTLVCell* slot_ = nullptr;
  CellBlock* block_ = nullptr;
};

}  // namespace qov

#endif
