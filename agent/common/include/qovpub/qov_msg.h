#ifndef QOVPUB_QOV_MSG_H
#define QOVPUB_QOV_MSG_H

#include <json/forwards.h>
#include <qovpub/qov_cell_bytes.h>
#include <qovpub/qov_export.h>
#include <qovpub/qov_msg_cell.h>
#include <qovpub/qov_msg_head.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <sstream>
#include <string_view>
#include <type_traits>

class CTLVRecordV3;

namespace qov {
class RecordCodec;
class RecordStore;
class Relocation;
class TagIndex;
}  // namespace qov

template <class MSG_S_HEAD>
class CTLVPackageV3;

/// Bytes of a record's head on the wire: command code and record length.
inline constexpr unsigned int MIN_RECORD_SIZE = 10;

namespace qov {

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
  static CellBlock* of(const CTLVCell* cell) noexcept;
  /// The place of the cell that stands, or will, at `slot`.
  CTLVCell::Place placeOf(const CTLVCell* slot) const noexcept {
    return static_cast<CTLVCell::Place>(offsetOf(slot) / kPlaceUnit);
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
  CTLVRecordV3* record() const noexcept { return record_; }
  void setRecord(CTLVRecordV3* record) noexcept { record_ = record; }

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
  CTLVRecordV3* record_ = nullptr;
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

/// A command code and an ordered list of cells.
///
/// Cells that the record makes itself (add...(), copies, decoding) live side by side in a few
/// blocks. They stay where they are: a reference or iterator to a cell is valid until the record is
/// cleared, assigned to or destroyed. When the record is moved, they go with its cells, as the move
/// says; erase() says what becomes of them there.
///
/// Cells of equal tag stand in the order they were appended, and a look-up finds the first of them
/// in that order. It goes by the tags that the cells have now: cells may be changed at any time
/// through any reference to them, their tags included, and a record answers as a fresh copy of it
/// would. Look-ups and additions take the same time in a record of any length, also in turn with
/// changes of values; the first look-up after a change of a tag or an erase() passes over all cells
/// once. That does not hold for records with cells from append(), see there.
///
/// Thread: const operations may run in several threads at once; all others, changes of a cell
///         through a reference included, need the record alone.
/// Owns:   its cells.
/// Errors: CQOV_Exception for a missing tag and as CTLVCell's; std::bad_alloc with errno ENOMEM.
///         The record is unchanged then.
class QOV_EXPORT CTLVRecordV3 {
 public:
  /// The longest record that can be encoded, without its head.
  static constexpr unsigned long kMaxLength = 65535;

  explicit CTLVRecordV3(std::uint64_t cmd = 0) noexcept : cmd_(cmd) {}
  CTLVRecordV3(const CTLVRecordV3& other) : cmd_(0) { clone(other); }
  CTLVRecordV3& operator=(const CTLVRecordV3& other) {
    clone(other);
    return *this;
  }
  /// Takes command code and cells over and leaves `other` its command code, without cells.
  ///
  /// Nothing is allocated; references and iterators to the cells stay valid and belong to this
  /// record. Only one that a package made (addRecord(), decoding, copying) may have to move its
  /// cells out of the package's memory, into new memory; references end there. When there is no
  /// memory, errno is ENOMEM, this record has no cells and `other` keeps them.
  CTLVRecordV3(CTLVRecordV3&& other) noexcept : cmd_(other.cmd_) { take(other); }
  /// The same for a record that is there already, on its own or in a package; its cells are freed.
  CTLVRecordV3& operator=(CTLVRecordV3&& other) noexcept;
  ~CTLVRecordV3() {
    if (given_ || sweep_) {
      freeValues();
    }
    if (own_ != nullptr || large_) {
      freeBlocks();
    }
  }

  std::uint64_t cmd() const noexcept { return cmd_; }
  void setCmd(std::uint64_t cmd) noexcept { cmd_ = cmd; }

  /// Puts the cell itself, which must come from `new`, at the end and takes it over; null is
  /// ignored. Throws, and takes nothing, when a record owns the cell already.
  ///
  /// The length is not limited here; a record above 65535 bytes cannot be encoded.
  ///
  /// Such a cell does not know its record. When the tag or length of any such cell changes, in
  /// whatever record and thread, every record with such cells has to look at all its cells again:
  /// each look-up and length() does, until the next addition to that record, which does, too.
  /// findNext() looks for such a cell from the first cell on. Additions and changes in turn, and a
  /// walk by findNext(), take the square of the time then; cells from add...() do not.
  void append(const CTLVCell* cell) { append_int(cell); }
  void append_int(const CTLVCell* cell);

  // Append a new cell, as CTLVCell's setter of that name. They throw, too, when the record would
  // grow beyond 65535 bytes.
  CTLVRecordV3& addUnsigned(unsigned short tag, std::uint64_t v) {
    return addNumber(CTLVCell::TLV_UINT, tag, v, CTLVCell::width(v));
  }
  CTLVRecordV3& addSigned(unsigned short tag, std::int64_t v) {
    const unsigned int bytes = CTLVCell::widthSigned(v);
    return addNumber(CTLVCell::TLV_INT, tag, CTLVCell::cut(v, bytes), bytes);
  }
  CTLVRecordV3& addBool(unsigned short tag, bool v) {
    return addNumber(CTLVCell::TLV_BOOL, tag, v ? 1 : 0, 1);
  }
  CTLVRecordV3& addEnum(unsigned short tag, std::uint64_t v) {
    return addNumber(CTLVCell::TLV_ENUM, tag, v, CTLVCell::width(v));
  }
  CTLVRecordV3& addTime(unsigned short tag, std::uint64_t v) {
    return addNumber(CTLVCell::TLV_TIME, tag, v, CTLVCell::width(v));
  }
  CTLVRecordV3& addString(unsigned short tag, std::string_view text) {
    return addBytes(CTLVCell::TLV_STRING, tag, text.data(), text.size(), true);
  }
  CTLVRecordV3& addOctets(unsigned short tag, const void* data, unsigned long len) {
    return addBytes(CTLVCell::TLV_OCTET, tag, data, data == nullptr ? 0 : len, false);
  }
  /// The same without a copy, as CTLVCell::setOctets() with such bytes.
  CTLVRecordV3& addOctets(unsigned short tag, std::unique_ptr<unsigned char[]> data,
                          unsigned long len);
  CTLVRecordV3& addJson(unsigned short tag, const Json::Value& v);
  /// Appends `cell`, copied or moved. One moved from this record counts twice for the limit.
  CTLVRecordV3& add(const CTLVCell& cell) { return add(CTLVCell(cell)); }
  CTLVRecordV3& add(CTLVCell&& cell);

  /// Puts type and value of `cell`, copied or moved, into the first cell with its tag; references
  /// to that one stay valid. Returns false, with `cell` as it was, when there is none. Throws, too,
  /// when the record would be longer than 65535 bytes, counted as by add().
  bool replace(const CTLVCell& cell) { return replace(CTLVCell(cell)); }
  bool replace(CTLVCell&& cell);

  /// The first cell with `tag`, or null.
  const CTLVCell* find(unsigned short tag) const noexcept {
    return large_ ? findIndexed(tag) : scan(tag);
  }
  CTLVCell* find(unsigned short tag) noexcept {
    return const_cast<CTLVCell*>(static_cast<const CTLVRecordV3*>(this)->find(tag));
  }
  /// The next cell behind `cell`, a cell of this record, that has the same tag, or null:
  ///
  ///     for (const CTLVCell* cell = r.find(7); cell != nullptr; cell = r.findNext(*cell))
  const CTLVCell* findNext(const CTLVCell& cell) const noexcept;
  CTLVCell* findNext(const CTLVCell& cell) noexcept {
    return const_cast<CTLVCell*>(static_cast<const CTLVRecordV3*>(this)->findNext(cell));
  }
  /// The first cell with `tag`; throws when there is none.
  const CTLVCell& operator[](unsigned short tag) const {
    const CTLVCell* cell = find(tag);
    if (cell == nullptr) {
      throwMissing(tag);
    }
    return *cell;
  }
  CTLVCell& operator[](unsigned short tag) {
    return const_cast<CTLVCell&>(static_cast<const CTLVRecordV3&>(*this)[tag]);
  }

  // The value of the first cell with `tag`; throw when it is missing or of another type.
  std::uint64_t getUnsigned(unsigned short tag) const { return (*this)[tag].getUnsigned(); }
  std::int64_t getSigned(unsigned short tag) const { return (*this)[tag].getSigned(); }
  bool getBool(unsigned short tag) const { return (*this)[tag].getBool(); }
  /// A view into the cell, as the next one.
  std::string_view getString(unsigned short tag) const { return (*this)[tag].getString(); }
  std::string_view getOctets(unsigned short tag) const { return (*this)[tag].getOctets(); }
  Json::Value getJson(unsigned short tag) const;

  // The same, or `otherwise` when the tag is missing; throw for another type all the same.
  std::uint64_t getUnsigned(unsigned short tag, std::uint64_t otherwise) const {
    const CTLVCell* cell = find(tag);
    return cell == nullptr ? otherwise : cell->getUnsigned();
  }
  std::int64_t getSigned(unsigned short tag, std::int64_t otherwise) const {
    const CTLVCell* cell = find(tag);
    return cell == nullptr ? otherwise : cell->getSigned();
  }
  bool getBool(unsigned short tag, bool otherwise) const {
    const CTLVCell* cell = find(tag);
    return cell == nullptr ? otherwise : cell->getBool();
  }
  /// A view into the cell or of what `otherwise` is a view of, as the next one.
  std::string_view getString(unsigned short tag, std::string_view otherwise) const {
    const CTLVCell* cell = find(tag);
    return cell == nullptr ? otherwise : cell->getString();
  }
  std::string_view getOctets(unsigned short tag, std::string_view otherwise) const {
    const CTLVCell* cell = find(tag);
    return cell == nullptr ? otherwise : cell->getOctets();
  }
  Json::Value getJson(unsigned short tag, const Json::Value& otherwise) const;

  /// Forward iteration over the cells in their order.
  template <class Cell>
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = CTLVCell;
    using difference_type = std::ptrdiff_t;
    using pointer = Cell*;
    using reference = Cell&;

    Iterator() noexcept = default;
    Cell& operator*() const noexcept { return *resolve(slot_); }
    Cell* operator->() const noexcept { return &**this; }
    Iterator& operator++() noexcept {
      if (++slot_ == block_->end()) {
        enter(block_->next());
      }
      return *this;
    }
    Iterator operator++(int) noexcept {
      Iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const Iterator& other) const noexcept { return slot_ == other.slot_; }
    bool operator!=(const Iterator& other) const noexcept { return slot_ != other.slot_; }

   private:
    friend class CTLVRecordV3;
    explicit Iterator(qov::CellBlock* block) noexcept { enter(block); }
    /// At `slot`, or at the first cell behind if `block` ends there.
    Iterator(qov::CellBlock* block, CTLVCell* slot) noexcept : slot_(slot), block_(block) {
      if (slot_ == block_->end()) {
        enter(block->next());
      }
    }
    /// A block may be empty: its record was closed or lost its cells, or could not set its first
    /// value.
    void enter(qov::CellBlock* block) noexcept {
      while (block != nullptr && block->begin() == block->end()) {
        block = block->next();
      }
      block_ = block;
      slot_ = block != nullptr ? block->begin() : nullptr;
    }

    CTLVCell* slot_ = nullptr;
    qov::CellBlock* block_ = nullptr;
  };
  using const_iterator = Iterator<const CTLVCell>;
  using iterator = Iterator<CTLVCell>;

  const_iterator begin() const noexcept { return const_iterator(first_); }
  const_iterator end() const noexcept { return const_iterator(); }
  iterator begin() noexcept { return iterator(first_); }
  iterator end() noexcept { return iterator(); }

  /// Frees the cell at `at`, which must not be end(), and returns the place of the next one.
  /// References and iterators to cells before it stay valid, those to it and to the cells behind it
  /// do not. References to other cells from append() stay valid, too.
  iterator erase(iterator at) noexcept;
  /// Frees all cells with `tag` and returns their number.
  unsigned long erase(unsigned short tag) noexcept;

  /// Number of cells.
  unsigned long count() const noexcept;
  /// Bytes of the cells on the wire, each 4 and its value; the record's head of 10 not included.
  unsigned long length() const noexcept { return stale() ? measure() : length_; }

  /// Makes this record a deep copy of `other`.
  void clone(const CTLVRecordV3& other);
  /// Frees all cells; the command code stays.
  void clear() noexcept;

  /// Writes the record's text form: of text values the length only, never the text. As all dumps it
  /// is the same in every locale and whatever the stream was set to. The stream keeps its locale
  /// and flags, but is decimal afterwards.
  void dump(std::ostringstream& out) const;
  /// Writes one cell's value as dump() does.
  void dump_i(const CTLVCell& cell, std::ostringstream& out) const;

 private:
  friend class CTLVCell;
  friend class qov::RecordCodec;
  friend class qov::RecordStore;
  template <class MSG_S_HEAD>
  friend class CTLVPackageV3;

  /// With up to about so many cells a scan beats an index.
  static constexpr unsigned long kScanLimit = 64;

  /// Of a package: the first cells go into `block`.
  CTLVRecordV3(std::uint64_t cmd, qov::RecordStore* store, qov::CellBlock* block) noexcept
      : cmd_(cmd), first_(block), last_(block), open_(block), store_(store), owned_(true) {
    block->setRecord(this);
  }

  static CTLVCell* resolve(CTLVCell* slot) noexcept {
    return slot->place_ == CTLVCell::Place::kStandIn ? slot->pointer<CTLVCell>() : slot;
  }
  /// Whether a cell that came through append() may have been changed since.
  bool stale() const noexcept {
    return given_ && seen_ != changesOfGiven_.load(std::memory_order_relaxed);
  }
  /// Takes such changes in.
  void refresh() noexcept;
  /// Takes in that `cell`, in a block of this record, had another head before.
  void takeChange(const CTLVCell& cell, std::uint32_t headBefore) noexcept;

  /// The place for one more cell, which counts once it is committed.
  CTLVCell* slot() {
    if (last_ == nullptr || last_->full()) {
      makeRoomOrThrow();
    }
    return last_->end();
  }
  /// Counts the cell that stands, or will, at `slot`.
  void commit(CTLVCell* slot, unsigned long grownLength) noexcept {
    last_->setEnd(slot + 1);
    length_ = grownLength;
    sweep_ = sweep_ || slot->outside();
    index(slot);
  }
  void commitFitting(unsigned long grownLength) noexcept {
    open_->grow();
    length_ = grownLength;
  }
  void index(CTLVCell* slot) noexcept {
    if (large_) {
      addToIndex(resolve(slot));
    }
  }
  /// Throws when the record is too long for a value of `bytes` more.
  void checkGrown(unsigned long bytes) {
    refresh();
    const unsigned long grown = length_ + MIN_TLV_SIZE + bytes;
    if (grown > kMaxLength) {
      throwTooLong(grown);
    }
  }
  CTLVRecordV3& addNumber(unsigned int type, unsigned short tag, std::uint64_t v,
                          unsigned int bytes);
  CTLVRecordV3& addBytes(unsigned int type, unsigned short tag, const void* data, unsigned long len,
                         bool nul);
  CTLVRecordV3& addChecked(unsigned int type, unsigned short tag, const void* data,
                           unsigned long len, bool nul);
  /// The block that new cells' long values may stand in: the last one, if it is the package's.
  qov::CellBlock* lender() const noexcept { return own_ == nullptr ? last_ : nullptr; }
  CTLVRecordV3& addLong(unsigned int type, unsigned short tag, const void* data, unsigned long len,
                        bool nul);
  /// True if a cell of `bytes` can be added at once: a good tag, short enough, and room for it.
  bool fits(unsigned short tag, unsigned long bytes) const noexcept {
    return tag <= MAX_TAG_VALUE && length_ + MIN_TLV_SIZE + bytes <= kMaxLength && !open_->full();
  }

  bool makeRoom(unsigned long cells) noexcept;
  void addBlock(qov::CellBlock* block) noexcept;
  void dropBlock(qov::CellBlock* block) noexcept;
  void addCopies(const CTLVRecordV3& other);
  void makeRoomOrThrow();
  /// Appends `cell`, which has been checked and has a value of its own. It may be one of this
  /// record's: then its old place shortens the record.
  void put(CTLVCell&& cell);
  void addToIndex(CTLVCell* cell) noexcept;
  void dropIndex() noexcept;
  qov::TagIndex* buildIndex() const noexcept;
  const_iterator at(const CTLVCell& cell) const noexcept;
  const CTLVCell* scan(unsigned short tag) const noexcept;
  const CTLVCell* findIndexed(unsigned short tag) const noexcept;
  unsigned long measure() const noexcept;
  void freeValues() noexcept;
  void freeBlocks() noexcept;
  void swapCells(CTLVRecordV3& other) noexcept;
  void claimBlocks() noexcept;
  void take(CTLVRecordV3& other) noexcept;
  bool leavePackage() noexcept;
  void follow(const qov::Relocation& moved) noexcept;
  [[noreturn]] static void throwMissing(unsigned short tag);
  [[noreturn]] static void throwTooLong(unsigned long length);

  std::uint64_t cmd_;
  qov::CellBlock* first_ = nullptr;
  qov::CellBlock* last_ = nullptr;
  // The last block, or one that is always full: in a record without blocks, in a large one, whose
  // index must learn of every cell, and in one that may be stale.
  qov::CellBlock* open_ = &qov::CellBlock::full_;
  // The first block that is not part of a package's memory; the ones behind are not, either.
  qov::CellBlock* own_ = nullptr;
  // Sum of the cells' sizes; exact unless stale().
  unsigned long length_ = 0;
  // Made by the first look-up in a large record, possibly by several threads at once. Exact unless
  // stale().
  mutable std::atomic<qov::TagIndex*> index_{nullptr};
  // The package's memory that the record stands in, or null.
  qov::RecordStore* store_ = nullptr;
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
};

inline CTLVRecordV3& CTLVRecordV3::addNumber(unsigned int type, unsigned short tag, std::uint64_t v,
                                             unsigned int bytes) {
  if (!fits(tag, bytes)) {
    return addChecked(type, tag, &v, bytes, false);
  }
  CTLVCell* cell = open_->end();
  commitFitting(length_ + MIN_TLV_SIZE + bytes);
  ::new (cell)
      CTLVCell(open_->placeOf(cell), static_cast<unsigned int>(tag) << 4 | type | bytes << 16, v);
  return *this;
}

inline CTLVRecordV3& CTLVRecordV3::addBytes(unsigned int type, unsigned short tag, const void* data,
                                            unsigned long len, bool nul) {
  const unsigned long total = len + (nul ? 1 : 0);
  if (len > CTLVCell::kInside || total > CTLVCell::kInside || !fits(tag, total)) {
    return addLong(type, tag, data, len, nul);
  }
  CTLVCell* cell = open_->end();
  commitFitting(length_ + MIN_TLV_SIZE + total);
  const auto bytes = static_cast<unsigned int>(len);
  const unsigned int typeTag = static_cast<unsigned int>(tag) << 4 | type;
  ::new (cell) CTLVCell(open_->placeOf(cell), typeTag | static_cast<unsigned int>(total) << 16, 0);
  qov::copySmall(cell->value_, static_cast<const unsigned char*>(data), bytes, nul);
  return *this;
}

#endif
