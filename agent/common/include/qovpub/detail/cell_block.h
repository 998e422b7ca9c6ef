#ifndef QOVPUB_DETAIL_CELL_BLOCK_H
#define QOVPUB_DETAIL_CELL_BLOCK_H

#include <qovpub/detail/cell_bytes.h>
#include <qovpub/detail/cell_value.h>
#include <qovpub/qov_export.h>
#include <qovpub/qov_msg_cell.h>

#include <cstddef>
#include <cstdint>
#include <new>

namespace qov {

class RecordCells;

/// Room for some cells of one record, in a list with the record's other blocks. The cells stand at
/// its start; long values may stand at its end.
///
/// A cell finds its block by its place, and the block knows the record: that is how a record hears
/// of a change through a reference.
///
/// Thread: as the record.
/// Owns:   nothing; the record knows which of its blocks are its own and which a package's.
/// Errors: make() returns null, with errno ENOMEM, when there is no memory.
class CellBlock {
 public:
  /// In an agent process an allocation of 1024 bytes or more is a mapping of its own, which costs
  /// more than all that is in it; pieces stay below, the allocator's bookkeeping included.
  static constexpr std::size_t kMaxBytes = 1000;
  static constexpr std::size_t kMaxCells = (kMaxBytes - 3 * sizeof(void*)) / sizeof(CTLVCell);

  /// A block of its own for `cells` cells, or for as many as a block may have.
  static CellBlock* make(std::size_t cells) noexcept;
  /// A block in `bytes` bytes at `memory`.
  static CellBlock* makeIn(void* memory, std::size_t bytes) noexcept {
    return ::new (memory) CellBlock(bytes);
  }
  /// Frees a list of blocks from make().
  static void freeAll(CellBlock* first) noexcept;

  /// The block of a cell in one; null for any other.
  static CellBlock* of(const CellValue* cell) noexcept;
  /// The place of the cell that stands, or will, at `slot`.
  CellValue::Place placeOf(const CTLVCell* slot) const noexcept {
    return static_cast<CellValue::Place>(offsetOf(slot) / kPlaceUnit);
  }
  /// What stands at `slot`: the cell there, or the one that it holds the place of.
  static CTLVCell* cellAt(CTLVCell* slot) noexcept {
    return slot->place_ == CellValue::Place::kStandIn ? slot->pointer<CTLVCell>() : slot;
  }
  /// Puts what stands at `from`, here or in another block, to the free `to`. `from` is free then.
  void relocate(CTLVCell* to, const CTLVCell* from) noexcept;
  /// Closes the gap at `slot`, whose value is freed already.
  void remove(CTLVCell* slot) noexcept;

  CTLVCell* begin() noexcept { return reinterpret_cast<CTLVCell*>(this + 1); }
  CTLVCell* end() noexcept { return at(end_); }
  /// A cell may stand in front of this place, or there.
  CTLVCell* lastPlace() noexcept { return at(lastPlace_); }
  bool full() const noexcept { return end_ > lastPlace_; }
  /// Makes, at the free `slot`, a cell with that head whose value stands in this block: the `len`
  /// bytes, 16 at least, at `data` and, if the head says so, a NUL. False if there is not enough
  /// room for both.
  bool makeLong(CTLVCell* slot, std::uint32_t head, const void* data, unsigned int len) noexcept;
  void setEnd(CTLVCell* end) noexcept { end_ = offsetOf(end); }
  /// Counts the cell that stands, or will, at end().
  void grow() noexcept { end_ += static_cast<std::uint32_t>(sizeof(CTLVCell)); }
  /// Lets nothing more in.
  void close() noexcept { lastPlace_ = end_ - static_cast<std::uint32_t>(sizeof(CTLVCell)); }
  CellBlock* next() const noexcept { return next_; }
  void setNext(CellBlock* next) noexcept { next_ = next; }
  /// The record to which the cells here belong.
  RecordCells* record() const noexcept { return record_; }
  void setRecord(RecordCells* record) noexcept { record_ = record; }

  /// Has no cells and no room.
  QOV_EXPORT static CellBlock full_;

 private:
  static constexpr std::uint32_t kPlaceUnit = alignof(CTLVCell);

  constexpr CellBlock() noexcept = default;
  explicit CellBlock(std::size_t bytes) noexcept
      : lastPlace_(static_cast<std::uint32_t>(bytes - sizeof(CTLVCell))) {}

  CTLVCell* at(std::uint32_t offset) noexcept {
    return reinterpret_cast<CTLVCell*>(reinterpret_cast<unsigned char*>(this) + offset);
  }
  std::uint32_t offsetOf(const CTLVCell* slot) const noexcept {
    return static_cast<std::uint32_t>(reinterpret_cast<const unsigned char*>(slot) -
                                      reinterpret_cast<const unsigned char*>(this));
  }

  CellBlock* next_ = nullptr;
  RecordCells* record_ = nullptr;
  // Counted in bytes from the block's start, which moves with its package.
  std::uint32_t end_ = 3 * sizeof(void*);
  std::uint32_t lastPlace_ = 0;
};
static_assert(sizeof(CellBlock) == 3 * sizeof(void*), "kMaxCells goes by that");
static_assert(sizeof(CellBlock) % alignof(CTLVCell) == 0, "the cells stand right behind");
static_assert(CellBlock::kMaxBytes / alignof(CTLVCell) < 256, "a cell's place is one byte");

inline bool CellBlock::makeLong(CTLVCell* slot, std::uint32_t head, const void* data,
                                unsigned int len) noexcept {
  const std::uint32_t bytes = head >> 16;
  if (lastPlace_ < offsetOf(slot) + bytes) {
    return false;
  }
  lastPlace_ -= bytes;
  auto* const to = reinterpret_cast<unsigned char*>(lastPlace() + 1);
  copyLong(to, static_cast<const unsigned char*>(data), len);
  if (len < bytes) {
    to[len] = 0;
  }
  ::new (slot) CTLVCell(placeOf(slot), head, 0);
  slot->storePointer(to, true);
  return true;
}

}  // namespace qov

#endif
