#ifndef MSG_CELL_BLOCK_H
#define MSG_CELL_BLOCK_H

#include <qovpub/qov_msg.h>

#include <algorithm>
#include <new>

namespace qov {

/// Raw room for some cells of one record, in a list with the record's other blocks.
///
/// Thread: as the record.
/// Owns:   its memory; the record ends the life of the cells.
/// Errors: make() returns null when there is no memory.
class CellBlock {
 public:
  /// In an agent process every allocation of 1024 bytes or more is a mapping of its own, which
  /// costs more than all the cells in it; blocks stay below, the allocator's bookkeeping included.
  static constexpr unsigned long kMaxBytes = 1000;

  /// How many cells fit behind a head of `head` bytes.
  static constexpr unsigned long capacity(unsigned long head) {
    return (kMaxBytes - head) / sizeof(CTLVCell);
  }

  /// Makes a block for `cells` cells, or for as many as a block may have if that is less; `cells`
  /// becomes that number.
  static CellBlock* make(CellBlock* next, unsigned long& cells) noexcept {
    cells = std::min(cells, capacity(sizeof(CellBlock)));
    void* memory = ::operator new(sizeof(CellBlock) + cells * sizeof(CTLVCell), std::nothrow);
    return memory == nullptr ? nullptr : ::new (memory) CellBlock(next);
  }

  static void freeAll(CellBlock* block) noexcept {
    while (block != nullptr) {
      CellBlock* next = block->next_;
      ::operator delete(block);
      block = next;
    }
  }

  /// The room itself.
  void* cells() noexcept { return this + 1; }

 private:
  explicit CellBlock(CellBlock* next) noexcept : next_(next) {}

  CellBlock* next_;
};
static_assert(sizeof(CellBlock) % alignof(CTLVCell) == 0);

}  // namespace qov

#endif
