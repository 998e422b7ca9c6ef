#ifndef QOVPUB_DETAIL_RECORD_CELLS_H
#define QOVPUB_DETAIL_RECORD_CELLS_H

#include <qovpub/detail/cell_block.h>
#include <qovpub/detail/cell_bytes.h>
#include <qovpub/detail/cell_iterator.h>
#include <qovpub/qov_export.h>
#include <qovpub/qov_msg_cell.h>

#include <atomic>
#include <cstdint>
#include <new>

namespace qov {

class RecordStore;
class Relocation;
class TagIndex;

/// What a CTLVRecordV3 is made of: the blocks that its cells stand in, and what is known of them.
/// CTLVRecordV3 hides it all from its users.
///
/// Thread: as CTLVRecordV3.
/// Owns:   the cells, and the blocks that are not a package's.
/// Errors: as CTLVRecordV3.
class QOV_EXPORT RecordCells {
 public:
  using ConstIterator = CellIterator<const CTLVCell>;
  using Iterator = CellIterator<CTLVCell>;

  static constexpr unsigned long kMaxLength = 65535;
  /// With up to about so many cells a scan beats an index.
  static constexpr unsigned long kScanLimit = 64;

  RecordCells(const RecordCells&) = delete;
  RecordCells& operator=(const RecordCells&) = delete;

  ConstIterator begin() const noexcept { return ConstIterator(first_); }
  ConstIterator end() const noexcept { return ConstIterator(); }
  Iterator begin() noexcept { return Iterator(first_); }
  Iterator end() noexcept { return Iterator(); }
  unsigned long count() const noexcept;
  unsigned long length() const noexcept { return stale() ? measure() : length_; }
  const CTLVCell* find(unsigned short tag) const noexcept {
    return large_ ? findIndexed(tag) : scan(tag);
  }
  Iterator erase(Iterator at) noexcept;

  /// Whether a cell that came through append() may have been changed since.
  bool stale() const noexcept {
    return given_ && seen_ != changesOfGiven_.load(std::memory_order_relaxed);
  }
  /// Takes such changes in.
  void refresh() noexcept;
  /// Takes in that `cell`, in a block of this record, had another head before.
  void takeChange(const CellValue& cell, std::uint32_t headBefore) noexcept;

  /// The place for one more cell, which counts once it is committed.
  CTLVCell* slot() {
    if (last_ == nullptr || last_->full()) {
      makeRoomOrThrow();
    }
    return last_->end();
  }
  /// Counts the cell that stands, or will, at `slot`.
  void commit(CTLVCell* slot, unsigned long grownLength) noexcept;
  void commitFitting(unsigned long grownLength) noexcept {
    open_->grow();
    length_ = grownLength;
  }
  /// Throws when the record is too long for a value of `bytes` more.
  void checkGrown(unsigned long bytes) {
    refresh();
    const unsigned long grown = length_ + MIN_TLV_SIZE + bytes;
    if (grown > kMaxLength) {
      throwTooLong(grown);
    }
  }
  void addNumber(unsigned int type, unsigned short tag, std::uint64_t v, unsigned int bytes);
  void addBytes(unsigned int type, unsigned short tag, const void* data, unsigned long len,
                bool nul);
  /// Adds any cell, or throws.
  void addChecked(unsigned int type, unsigned short tag, const void* data, unsigned long len,
                  bool nul);
  /// Adds a cell with a long value, in the package's block if both have room there, or any cell.
  void addLong(unsigned int type, unsigned short tag, const void* data, unsigned long len,
               bool nul);
  /// The block that new cells' long values may stand in: the last one, if it is the package's.
  CellBlock* lender() const noexcept { return own_ == nullptr ? last_ : nullptr; }
  /// True if a cell of `bytes` can be added at once: a good tag, short enough, and room for it.
  bool fits(unsigned short tag, unsigned long bytes) const noexcept {
    return tag <= MAX_TAG_VALUE && length_ + MIN_TLV_SIZE + bytes <= kMaxLength && !open_->full();
  }

  /// Room for some more cells, for `cells` if it is known how many are to come.
  bool makeRoom(unsigned long cells) noexcept;
  void makeRoomOrThrow();
  void addBlock(CellBlock* block) noexcept;
  void dropBlock(CellBlock* block) noexcept;
  /// Into a record that nobody has looked anything up in: it has no index.
  void addCopies(const RecordCells& other);
  /// Appends `cell`, which has been checked and has a value of its own. It may be one of this
  /// record's: then its old place shortens the record.
  void put(CTLVCell&& cell);
  void addToIndex(CTLVCell* cell) noexcept;
  void dropIndex() noexcept;
  TagIndex* buildIndex() const noexcept;
  /// Where `cell` stands; a cell from append() has to be looked for.
  ConstIterator at(const CTLVCell& cell) const noexcept;
  const CTLVCell* scan(unsigned short tag) const noexcept;
  const CTLVCell* findIndexed(unsigned short tag) const noexcept;
  unsigned long measure() const noexcept;
  void freeValues() noexcept;
  void freeBlocks() noexcept;
  void swapCells(RecordCells& other) noexcept;
  void claimBlocks() noexcept;
  /// Into a record without cells.
  void take(RecordCells& other) noexcept;
  bool leavePackage() noexcept;
  /// The record has come to stand at another place, and some of its blocks may have, too.
  void follow(const Relocation& moved) noexcept;
  [[noreturn]] static void throwMissing(unsigned short tag);
  [[noreturn]] static void throwTooLong(unsigned long length);

  CellBlock* first_ = nullptr;
  CellBlock* last_ = nullptr;
  // The last block, or one that is always full: in a record without blocks, in a large one, whose
  // index must learn of every cell, and in one that may be stale.
  CellBlock* open_ = &CellBlock::full_;
  // The first block that is not part of a package's memory; the ones behind are not, either.
  CellBlock* own_ = nullptr;
  // Sum of the cells' sizes; exact unless stale().
  unsigned long length_ = 0;
  // Made by the first look-up in a large record, possibly by several threads at once. Exact unless
  // stale().
  mutable std::atomic<TagIndex*> index_{nullptr};
  // The package's memory that the record stands in, or null.
  RecordStore* store_ = nullptr;
  // The value of changesOfGiven_ up to which all changes are taken in.
  std::uint64_t seen_ = 0;
  // Has cells from append(), or had.
  bool given_ = false;
  // A cell may own memory outside the blocks.
  bool sweep_ = false;
  // Had more than kScanLimit cells when it last needed room.
  bool large_ = false;
  // A package has it, in its memory or taken over; for good.
  bool owned_ = false;

  // Counts the changes of cells from append(), in all records: those cells cannot find theirs.
  static std::atomic<std::uint64_t> changesOfGiven_;

 protected:
  RecordCells() noexcept = default;
  /// Of a package: the first cells go into `block`.
  RecordCells(RecordStore* store, CellBlock* block) noexcept
      : first_(block), last_(block), open_(block), store_(store), owned_(true) {
    block->setRecord(this);
  }
  ~RecordCells() {
    if (given_ || sweep_) {
      freeValues();
    }
    if (own_ != nullptr || large_) {
      freeBlocks();
    }
  }
};

inline void RecordCells::commit(CTLVCell* slot, unsigned long grownLength) noexcept {
  last_->setEnd(slot + 1);
  length_ = grownLength;
  sweep_ = sweep_ || slot->outside();
  if (large_) {
    addToIndex(CellBlock::cellAt(slot));
  }
}

inline void RecordCells::addNumber(unsigned int type, unsigned short tag, std::uint64_t v,
                                   unsigned int bytes) {
  if (!fits(tag, bytes)) {
    addChecked(type, tag, &v, bytes, false);
    return;
  }
  CTLVCell* cell = open_->end();
  commitFitting(length_ + MIN_TLV_SIZE + bytes);
  ::new (cell)
      CTLVCell(open_->placeOf(cell), static_cast<unsigned int>(tag) << 4 | type | bytes << 16, v);
}

inline void RecordCells::addBytes(unsigned int type, unsigned short tag, const void* data,
                                  unsigned long len, bool nul) {
  const unsigned long total = len + (nul ? 1 : 0);
  if (len > CellValue::kInside || total > CellValue::kInside || !fits(tag, total)) {
    addLong(type, tag, data, len, nul);
    return;
  }
  CTLVCell* cell = open_->end();
  commitFitting(length_ + MIN_TLV_SIZE + total);
  const auto bytes = static_cast<unsigned int>(len);
  const unsigned int typeTag = static_cast<unsigned int>(tag) << 4 | type;
  ::new (cell) CTLVCell(open_->placeOf(cell), typeTag | static_cast<unsigned int>(total) << 16, 0);
  copySmall(cell->value_, static_cast<const unsigned char*>(data), bytes, nul);
}

}  // namespace qov

#endif
