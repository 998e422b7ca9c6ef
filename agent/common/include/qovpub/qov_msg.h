#ifndef QOVPUB_QOV_MSG_H
#define QOVPUB_QOV_MSG_H

#include <json/forwards.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <string_view>

namespace qov {
class RecordCodec;
class RecordStore;
class TagIndex;
}  // namespace qov

template <class MSG_S_HEAD>
class CTLVPackageV3;

/// The largest tag of a cell.
inline constexpr unsigned short MAX_TAG_VALUE = 4095;
/// Bytes of a record's head on the wire: command code and record length.
inline constexpr unsigned int MIN_RECORD_SIZE = 10;
/// Bytes of a cell's head on the wire: type and tag, and value length.
inline constexpr unsigned int MIN_TLV_SIZE = 4;

/// Header of the messages between the modules of one process: 32 bytes, host byte order.
///
/// The fields are named by their width and meaning on the wire; MST and CID are carried unchanged.
///
/// Thread: a value. Building one takes the next serial number under a lock of its own, from any
///         thread and at any time, static initialisation included.
/// Owns:   nothing.
/// Errors: none.
struct __attribute__((packed)) QOVMsgHead {
  static constexpr std::uint32_t kMagic = 20080808;
  static constexpr std::uint8_t kVersion = 1;
  /// Set in flags_ when the message carries a whole V3 package as its body.
  static constexpr std::uint8_t kFlagOm = 1;

  /// The defaults: no type, all four addresses 255, CID -1 and a serial number of its own.
  QOVMsgHead();

  std::uint32_t magic_;
  std::uint8_t version_;
  std::uint8_t type_;  ///< 1 request, 2 response, 3 and 4 asynchronous; 0 is not a valid message
  std::uint8_t mst_;   ///< in a response: the responder's result
  std::uint8_t spid_;  ///< sender's process id
  std::uint8_t smid_;  ///< sender's module id
  std::uint8_t rpid_;  ///< receiver's process id
  std::uint8_t rmid_;  ///< receiver's module id
  std::uint8_t flags_;
  std::int32_t cid_;
  std::uint32_t sn_;   ///< serial number
  std::uint64_t opc_;  ///< operation code
  std::uint32_t len_;  ///< record bytes that follow; encode() and decode() set it

  /// Writes the eleven lines of the header's text form.
  void dump(std::ostringstream& out) const;

  /// The last serial number given out. It starts at a value that differs from process to process
  /// and wraps at 2^32.
  static std::uint32_t u32SN_;
};
static_assert(sizeof(QOVMsgHead) == 32, "copied byte for byte");

/// Header of the V3 messages on the management link: 28 bytes, host byte order.
///
/// Thread: a value; allocateSerial() from any thread.
/// Owns:   nothing.
/// Errors: none.
struct TLVMsgHeadV3 {
  static constexpr std::uint32_t kMagic = 0x55555555;
  static constexpr std::uint32_t kVersion = 3;

  std::uint32_t magic_ = kMagic;
  std::uint32_t version_ = kVersion;
  std::uint32_t ret_ = 0;           ///< result code
  std::uint32_t ssk_ = 0xFFFFFFFF;  ///< session key; never printed as it is
  std::uint16_t nid_ = 0xFFFD;
  std::uint16_t reserved_ = 0xFFFF;
  std::uint16_t bid_ = 0xFFFF;
  std::uint16_t ser_ = 0xFFFF;  ///< serial number; 0xFFFF until one is allocated
  std::uint32_t len_ = 0;       ///< record bytes that follow; encode() and decode() set it

  /// Writes the next serial number, 1 to 32767, into `head`. The count restarts so that 1 comes
  /// only once per process. Two threads that meet at the restart may get the same number; that is
  /// accepted, the link matches a reply with one outstanding request only.
  static void allocateSerial(TLVMsgHeadV3& head);

  /// Writes the six lines of the header's text form; of the session key only the end of its digest.
  void dump(std::ostringstream& out) const;

  static std::atomic<std::uint16_t> oAtomicSerial_;
};
static_assert(sizeof(TLVMsgHeadV3) == 28, "copied byte for byte");

/// One tagged, typed value.
///
/// Values of up to 19 bytes live inside the cell, longer ones in one allocation. An empty value has
/// an oddity that is kept: a cell of length 0 arrives at the receiver with tag 4094 and no type,
/// since decoding goes through setCell().
///
/// Thread: a value; const operations may run in several threads at once.
/// Owns:   its value.
/// Errors: CQOV_Exception for a tag above 4095, a value above 65535 bytes, and a typed getter on a
///         cell of another type; the cell is unchanged then. std::bad_alloc with errno ENOMEM when
///         there is no memory for the value, the cell is unchanged too.
class CTLVCell {
 public:
  enum ETLVType : unsigned short {
    TLV_INVALID = 0,
    TLV_OCTET = 1,
    TLV_STRING = 2,
    TLV_UINT = 3,
    TLV_INT = 4,
    TLV_BOOL = 5,
    TLV_ENUM = 6,
    TLV_ARRAY = 7,
    TLV_JSON = 8,
    TLV_TIME = 9
  };

  /// The longest value: its length travels in 16 bits.
  static constexpr unsigned long kMaxLength = 65535;

  /// An empty cell without a type, tag 4094.
  CTLVCell() noexcept : CTLVCell(Place::kAlone) {}
  /// As set_i() on an empty cell.
  CTLVCell(ETLVType type, unsigned short tag, const void* data, unsigned long len);
  CTLVCell(const CTLVCell& other);
  /// Takes the value over and leaves `other` empty, its type and tag as they are.
  CTLVCell(CTLVCell&& other) noexcept;
  CTLVCell& operator=(const CTLVCell& other);
  CTLVCell& operator=(CTLVCell&& other) noexcept;
  ~CTLVCell() { freeValue(); }

  /// Equal type, tag, length and bytes.
  bool operator==(const CTLVCell& other) const noexcept;
  bool operator!=(const CTLVCell& other) const noexcept { return !(*this == other); }

  /// Sets type and tag and copies `len` bytes, which may lie in this cell's own value. `data` null
  /// or `len` 0 makes the value empty.
  void set_i(ETLVType type, unsigned short tag, const void* data, unsigned long len);

  /// Stores `v` as compact JSON text with a NUL: type Array when it is an array, Json otherwise.
  void set(unsigned short tag, const Json::Value& v);

  /// Stores type and tag packed as on the wire (tag << 4 | type, unchecked) and a copy of the
  /// bytes. With `data` null or `len` 0 the value becomes empty and type and tag stay what they
  /// were; that differs from set_i() and is kept, decoding relies on it.
  void setCell(unsigned short typeTag, const char* data, unsigned long len);

  // Typed setters. Numbers take the fewest of 1, 2, 4 and 8 bytes.
  void setUnsigned(unsigned short tag, std::uint64_t v) { setNumber(TLV_UINT, tag, v, width(v)); }
  void setSigned(unsigned short tag, std::int64_t v) {
    setNumber(TLV_INT, tag, cut(v, widthSigned(v)), widthSigned(v));
  }
  void setBool(unsigned short tag, bool v) { setNumber(TLV_BOOL, tag, v ? 1 : 0, 1); }
  void setEnum(unsigned short tag, std::uint64_t v) { setNumber(TLV_ENUM, tag, v, width(v)); }
  void setTime(unsigned short tag, std::uint64_t v) { setNumber(TLV_TIME, tag, v, width(v)); }
  /// Stores the text and its NUL, 65535 bytes in all. It is read back up to its first NUL.
  void setString(unsigned short tag, std::string_view text);
  void setOctets(unsigned short tag, const void* data, unsigned long len) {
    set_i(TLV_OCTET, tag, data, len);
  }
  void setJson(unsigned short tag, const Json::Value& v) { set(tag, v); }

  // Typed getters.
  /// The value of a Uint, Bool, Enum or Time cell.
  std::uint64_t getUnsigned() const {
    require(1U << TLV_UINT | 1U << TLV_BOOL | 1U << TLV_ENUM | 1U << TLV_TIME, "unsigned");
    return number();
  }
  std::int64_t getSigned() const {
    require(1U << TLV_INT, "signed");
    return static_cast<std::int64_t>(number());
  }
  bool getBool() const {
    require(1U << TLV_BOOL, "bool");
    return number() != 0;
  }
  /// The text up to its first NUL or the end of the value; a view into the cell, valid until the
  /// cell is changed or destroyed.
  std::string_view getString() const {
    require(1U << TLV_STRING, "string");
    return text();
  }
  /// All bytes of the value, a view as with getString().
  std::string_view getOctets() const {
    require(1U << TLV_OCTET, "octet");
    return {reinterpret_cast<const char*>(value()), length()};
  }
  /// The parsed value of a Json or Array cell; throws as well when the text is not JSON.
  Json::Value getJson() const;

  /// Parses the text of a Json cell. Returns false, and leaves `v` untouched, when the cell has
  /// another type or its text is not JSON or is nested deeper than 1000 levels.
  bool getJson(Json::Value& v) const;
  /// The same for an Array cell.
  bool getArray(Json::Value& v) const;

  /// Throws for the types Invalid, Octet and String. Array and Json pass; that is narrower than the
  /// name says and is kept.
  void checkNumerical() const;

  /// The value as a number whatever the type, as dumps and conversions read it: the first 8 bytes
  /// at most, little-endian, zero-extended; an Int of 1, 2 or 4 bytes is sign-extended.
  std::uint64_t number() const noexcept;

  /// The value as text: octets and text as they are, an Array through buildArrayValue(), numbers in
  /// decimal. Bool, Enum and Time print signed here although a dump prints them unsigned; kept.
  std::string toString() const;

  /// The elements of the Array cell `cell`, separated by commas and without brackets; empty when
  /// its text is no array. Kept as they are: an integer that fits 32 bits signed and unsigned is
  /// written twice in a row, and an element that is neither such an integer nor a string writes
  /// nothing.
  std::string buildArrayValue(const CTLVCell& cell) const;

  unsigned short tag() const noexcept { return typeTag() >> 4; }
  ETLVType type() const noexcept { return static_cast<ETLVType>(head_ & 0xF); }
  unsigned short typeTag() const noexcept { return static_cast<unsigned short>(head_); }
  unsigned short length() const noexcept { return static_cast<unsigned short>(head_ >> 16); }
  /// The `length()` bytes of the value, valid until the cell is changed or destroyed. They need not
  /// end in a NUL, also in a text cell: what came over the wire is kept as it came.
  const unsigned char* value() const noexcept {
    return outside() ? pointer<const unsigned char>() : value_;
  }
  /// The value up to its first NUL or its end, whatever the type; a view into the cell.
  std::string_view text() const noexcept {
    const char* bytes = reinterpret_cast<const char*>(value());
    return {bytes, outside() ? ::strnlen(bytes, length()) : insideTextLength()};
  }

  /// The name of a type as dumps print it; "Invalid" for a code above 9.
  static const char* typeName(unsigned int type) noexcept;

 private:
  friend class CTLVRecordV3;
  friend class qov::RecordCodec;

  /// Where a cell stands: on its own, on its own but owned by a record, in a record's block; or it
  /// only holds the place, in a record's block, of a cell that stands elsewhere.
  enum class Place : unsigned char { kAlone, kAdopted, kInBlock, kStandIn };

  static constexpr unsigned short kInside = 19;
  static constexpr unsigned short kUnsetTypeTag = 4094U << 4;

  explicit CTLVCell(Place place) noexcept : CTLVCell(place, kUnsetTypeTag, 0) {}
  /// A cell that holds the number `v`; `head` says how many bytes of it count.
  CTLVCell(Place place, std::uint32_t head, std::uint64_t v) noexcept : place_(place), head_(head) {
    storeNumber(v);
  }

  static unsigned int width(std::uint64_t v) noexcept;
  static unsigned int widthSigned(std::int64_t v) noexcept;
  static std::uint64_t cut(std::int64_t v, unsigned int bytes) noexcept;
  static unsigned short packed(unsigned int type, unsigned short tag);

  void setHead(unsigned int typeTag, unsigned int length) noexcept {
    head_ = typeTag | length << 16;
  }
  bool outside() const noexcept { return length() > kInside; }
  template <class T>
  T* pointer() const noexcept {
    T* there;
    std::memcpy(&there, value_, sizeof there);
    return there;
  }
  void storePointer(const void* there) noexcept { std::memcpy(value_, &there, sizeof there); }
  void storeNumber(std::uint64_t v) noexcept { std::memcpy(value_, &v, sizeof v); }
  void freeValue() noexcept {
    if (outside()) {
      delete[] pointer<unsigned char>();
    }
  }
  void setNumber(unsigned int type, unsigned short tag, std::uint64_t v, unsigned int bytes);
  /// Sets type and tag and copies the value, plus a NUL if `nul`. Returns false, with errno ENOMEM
  /// and the cell as it was, when there is no memory.
  bool replace(unsigned int typeTag, const void* data, unsigned int len, bool nul) noexcept;
  void replaceOrThrow(unsigned int typeTag, const void* data, unsigned long len, bool nul);
  bool parse(Json::Value& v) const;
  /// Bytes of an inside value before its first NUL.
  std::size_t insideTextLength() const noexcept;

  static void checkLength(unsigned long len, bool nul) {
    if (len > kMaxLength - (nul ? 1 : 0)) {
      throwTooLong(len);
    }
  }
  void require(unsigned int types, const char* wanted) const {
    if ((types >> type() & 1U) == 0) {
      throwWrongType(wanted);
    }
  }
  [[noreturn]] void throwWrongType(const char* wanted) const;
  [[noreturn]] static void throwTooLong(unsigned long len);
  [[noreturn]] static void throwBadTag(unsigned short tag);

  // A value of at most 8 bytes is padded with zeros to 8. One of more than kInside bytes is an
  // array of its own and its address stands here.
  alignas(8) unsigned char value_[kInside];
  Place place_;
  // As on the wire: type and tag in the lower half, the length in the upper.
  std::uint32_t head_;
};
static_assert(sizeof(CTLVCell) == 24, "what a block of cells holds is reckoned with this");

namespace qov {

/// Room for some cells of one record, in a list with the record's other blocks.
///
/// Thread: as the record.
/// Owns:   its memory, unless it is part of a package's; the record owns what the cells hold.
/// Errors: make() returns null, with errno ENOMEM, when there is no memory.
class CellBlock {
 public:
  /// In an agent process an allocation of 1024 bytes or more is a mapping of its own, which costs
  /// more than all that is in it; pieces stay below, the allocator's bookkeeping included.
  static constexpr std::size_t kMaxBytes = 1000;

  /// A block of its own for `cells` cells, or for as many as a block may have.
  static CellBlock* make(std::size_t cells) noexcept;
  /// A block in `bytes` bytes at `memory`, which somebody else frees.
  static CellBlock* makeIn(void* memory, std::size_t bytes) noexcept {
    return ::new (memory) CellBlock((bytes - sizeof(CellBlock)) / sizeof(CTLVCell), false);
  }
  static void freeAll(CellBlock* first) noexcept;

  CTLVCell* begin() noexcept { return reinterpret_cast<CTLVCell*>(this + 1); }
  CTLVCell* end() const noexcept { return end_; }
  CTLVCell* limit() const noexcept { return limit_; }
  bool full() const noexcept { return end_ == limit_; }
  void setEnd(CTLVCell* end) noexcept { end_ = end; }
  /// Lets nothing more in.
  void close() noexcept { limit_ = end_; }
  CellBlock* next() const noexcept { return next_; }
  void setNext(CellBlock* next) noexcept { next_ = next; }

 private:
  CellBlock(std::size_t capacity, bool own) noexcept
      : end_(begin()), limit_(begin() + capacity), own_(own) {}

  CellBlock* next_ = nullptr;
  CTLVCell* end_;
  CTLVCell* limit_;
  bool own_;
};
static_assert(sizeof(CellBlock) % alignof(CTLVCell) == 0, "the cells stand right behind");

}  // namespace qov

/// A command code and an ordered list of cells.
///
/// Cells that the record makes itself (add...(), copies, decoding) live side by side in a few
/// blocks. They never move: a reference to a cell is valid until the record is cleared, assigned to
/// or destroyed. Cells of equal tag stand in the order they were appended and look-ups find the
/// first. A cell whose tag was changed through a reference is found under the tag it has now.
///
/// Thread: const operations may run in several threads at once; all others need the record alone.
/// Owns:   its cells.
/// Errors: CQOV_Exception for a missing tag and as CTLVCell's; std::bad_alloc with errno ENOMEM.
/// The
///         record is unchanged then.
class CTLVRecordV3 {
 public:
  /// The longest record that can be encoded, without its head.
  static constexpr unsigned long kMaxLength = 65535;

  explicit CTLVRecordV3(std::uint64_t cmd = 0) noexcept : cmd_(cmd) {}
  CTLVRecordV3(const CTLVRecordV3& other) : cmd_(0) { clone(other); }
  CTLVRecordV3& operator=(const CTLVRecordV3& other) {
    clone(other);
    return *this;
  }
  ~CTLVRecordV3() {
    if (loose_ || sweep_) {
      freeValues();
    }
    if (ownBlocks_ || large_) {
      freeBlocks();
    }
  }

  std::uint64_t cmd() const noexcept { return cmd_; }
  void setCmd(std::uint64_t cmd) noexcept { cmd_ = cmd; }

  /// Puts the cell itself, which must come from `new`, at the end and takes it over; null is
  /// ignored. Throws, and takes nothing, when a record owns the cell already.
  ///
  /// The length is not limited here; a record above 65535 bytes cannot be encoded.
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
  CTLVRecordV3& addJson(unsigned short tag, const Json::Value& v);
  /// Appends `cell`, copied or moved.
  CTLVRecordV3& add(CTLVCell cell);

  /// The first cell with `tag`, or null.
  const CTLVCell* find(unsigned short tag) const noexcept {
    return large_ ? findIndexed(tag) : scan(tag);
  }
  CTLVCell* find(unsigned short tag) noexcept {
    return loosen(static_cast<const CTLVRecordV3*>(this)->find(tag));
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
    return *loosen(&static_cast<const CTLVRecordV3&>(*this)[tag]);
  }

  // The value of the first cell with `tag`; throw when it is missing or of another type.
  std::uint64_t getUnsigned(unsigned short tag) const { return (*this)[tag].getUnsigned(); }
  std::int64_t getSigned(unsigned short tag) const { return (*this)[tag].getSigned(); }
  bool getBool(unsigned short tag) const { return (*this)[tag].getBool(); }
  /// A view into the cell, as the next one.
  std::string_view getString(unsigned short tag) const { return (*this)[tag].getString(); }
  std::string_view getOctets(unsigned short tag) const { return (*this)[tag].getOctets(); }
  Json::Value getJson(unsigned short tag) const;

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
    Cell* operator->() const noexcept { return resolve(slot_); }
    Iterator& operator++() noexcept {
      if (++slot_ == end_) {
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
    /// Only the last block may be empty.
    void enter(qov::CellBlock* block) noexcept {
      const bool any = block != nullptr && block->begin() != block->end();
      block_ = block;
      slot_ = any ? block->begin() : nullptr;
      end_ = any ? block->end() : nullptr;
    }

    CTLVCell* slot_ = nullptr;
    CTLVCell* end_ = nullptr;
    qov::CellBlock* block_ = nullptr;
  };
  using const_iterator = Iterator<const CTLVCell>;
  using iterator = Iterator<CTLVCell>;

  const_iterator begin() const noexcept { return const_iterator(first_); }
  const_iterator end() const noexcept { return const_iterator(); }
  iterator begin() noexcept {
    loose_ = true;
    return iterator(first_);
  }
  iterator end() noexcept { return iterator(); }

  /// Number of cells.
  unsigned long count() const noexcept;
  /// Bytes of the cells on the wire, each 4 and its value; the record's head of 10 not included.
  unsigned long length() const noexcept { return loose_ ? measure() : length_; }

  /// Makes this record a deep copy of `other`.
  void clone(const CTLVRecordV3& other);
  /// Frees all cells; the command code stays.
  void clear() noexcept;

  /// Writes the record's text form: of text values the length only, never the text.
  void dump(std::ostringstream& out) const;
  /// Writes one cell's value as dump() does.
  void dump_i(const CTLVCell& cell, std::ostringstream& out) const;

 private:
  friend class qov::RecordCodec;
  friend class qov::RecordStore;
  template <class MSG_S_HEAD>
  friend class CTLVPackageV3;

  /// With up to about so many cells a scan beats an index.
  static constexpr unsigned long kScanLimit = 64;

  /// Of a package: the first cells go into `block`.
  CTLVRecordV3(std::uint64_t cmd, qov::RecordStore* store, qov::CellBlock* block) noexcept
      : cmd_(cmd), first_(block), last_(block), store_(store) {}

  static CTLVCell* resolve(CTLVCell* slot) noexcept {
    return slot->place_ == CTLVCell::Place::kStandIn ? slot->pointer<CTLVCell>() : slot;
  }
  /// Notes that someone may change `cell` from outside.
  CTLVCell* loosen(const CTLVCell* cell) noexcept {
    loose_ = true;
    return const_cast<CTLVCell*>(cell);
  }

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
  }
  void index(CTLVCell* slot) noexcept {
    if (large_) {
      addToIndex(resolve(slot));
    }
  }
  /// The length with a value of `bytes` more; throws when that is too long.
  unsigned long grownLength(unsigned long bytes) const {
    const unsigned long grown = length_ + MIN_TLV_SIZE + bytes;
    if (grown > kMaxLength) {
      checkExactGrowth(bytes);
    }
    return grown;
  }
  CTLVRecordV3& addNumber(unsigned int type, unsigned short tag, std::uint64_t v,
                          unsigned int bytes);
  CTLVRecordV3& addBytes(unsigned int type, unsigned short tag, const void* data, unsigned long len,
                         bool nul);
  CTLVRecordV3& addChecked(unsigned int type, unsigned short tag, const void* data,
                           unsigned long len, bool nul);
  /// True if a cell of `bytes` can be added at once: a good tag, short enough, room for it, no index.
  bool fits(unsigned short tag, unsigned long bytes) const noexcept {
    return tag <= MAX_TAG_VALUE && length_ + MIN_TLV_SIZE + bytes <= kMaxLength &&
           last_ != nullptr && !last_->full() && !large_;
  }
  void checkExactGrowth(unsigned long bytes) const;

  bool makeRoom(unsigned long cells) noexcept;
  void addBlock(qov::CellBlock* block) noexcept;
  void addCopies(const CTLVRecordV3& other);
  void makeRoomOrThrow();
  void addToIndex(CTLVCell* cell) noexcept;
  qov::TagIndex* buildIndex() const noexcept;
  const CTLVCell* scan(unsigned short tag) const noexcept;
  const CTLVCell* findIndexed(unsigned short tag) const noexcept;
  unsigned long measure() const noexcept;
  void freeValues() noexcept;
  void freeBlocks() noexcept;
  void swapCells(CTLVRecordV3& other) noexcept;
  [[noreturn]] static void throwMissing(unsigned short tag);

  std::uint64_t cmd_;
  qov::CellBlock* first_ = nullptr;
  qov::CellBlock* last_ = nullptr;
  // Sum of the cells' sizes while they were appended; exact unless loose_.
  unsigned long length_ = 0;
  // Made by the first look-up in a large record, possibly by several threads at once.
  mutable std::atomic<qov::TagIndex*> index_{nullptr};
  // The package's memory that the record stands in, or null.
  qov::RecordStore* store_ = nullptr;
  // Someone may have changed a cell since it was appended.
  bool loose_ = false;
  // A cell may own memory outside the blocks.
  bool sweep_ = false;
  // Had more than kScanLimit cells when it last needed room.
  bool large_ = false;
  // Has blocks that are not part of a package's memory.
  bool ownBlocks_ = false;
};

/// 1, 2, 4 or 8, without a branch that small and large values in turn would mispredict.
inline unsigned int CTLVCell::width(std::uint64_t v) noexcept {
  return 1U + (v > 0xFF ? 1U : 0U) + (v > 0xFFFF ? 2U : 0U) + (v > 0xFFFFFFFF ? 4U : 0U);
}

/// The shortest form that reads back the same needs one bit more than the magnitude.
inline unsigned int CTLVCell::widthSigned(std::int64_t v) noexcept {
  const auto magnitude = static_cast<std::uint64_t>(v < 0 ? ~v : v);
  return magnitude >> 62 == 0 ? width(magnitude << 1) : 8;
}

inline std::uint64_t CTLVCell::cut(std::int64_t v, unsigned int bytes) noexcept {
  return static_cast<std::uint64_t>(v) & ~0ULL >> (8 - bytes) * 8;
}

inline unsigned short CTLVCell::packed(unsigned int type, unsigned short tag) {
  if (tag > MAX_TAG_VALUE) {
    throwBadTag(tag);
  }
  return static_cast<unsigned short>(static_cast<unsigned int>(tag) << 4 | (type & 0xF));
}

inline void CTLVCell::setNumber(unsigned int type, unsigned short tag, std::uint64_t v,
                                unsigned int bytes) {
  const unsigned short typeTag = packed(type, tag);
  freeValue();
  storeNumber(v);
  setHead(typeTag, bytes);
}

inline std::uint64_t CTLVCell::number() const noexcept {
  std::uint64_t raw;
  std::memcpy(&raw, value(), sizeof raw);
  if (type() != TLV_INT) {
    return raw;
  }
  switch (length()) {
    case 1:
      return static_cast<std::uint64_t>(static_cast<std::int8_t>(raw));
    case 2:
      return static_cast<std::uint64_t>(static_cast<std::int16_t>(raw));
    case 4:
      return static_cast<std::uint64_t>(static_cast<std::int32_t>(raw));
    default:
      return raw;
  }
}

inline std::size_t CTLVCell::insideTextLength() const noexcept {
  // Eight bytes at a time: the lowest set bit marks the first zero byte.
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  std::size_t at = 0;
  for (; at + sizeof(std::uint64_t) <= kInside; at += sizeof(std::uint64_t)) {
    std::uint64_t word;
    std::memcpy(&word, value_ + at, sizeof word);
    const std::uint64_t zeros = (word - kOnes) & ~word & kOnes << 7;
    if (zeros != 0) {
      at += static_cast<std::size_t>(__builtin_ctzll(zeros)) / 8;
      break;
    }
  }
  while (at < kInside && value_[at] != 0) {
    ++at;
  }
  return at < length() ? at : length();
}

inline CTLVRecordV3& CTLVRecordV3::addNumber(unsigned int type, unsigned short tag, std::uint64_t v,
                                             unsigned int bytes) {
  if (!fits(tag, bytes)) {
    return addChecked(type, tag, &v, bytes, false);
  }
  CTLVCell* cell = last_->end();
  commit(cell, length_ + MIN_TLV_SIZE + bytes);
  ::new (cell) CTLVCell(CTLVCell::Place::kInBlock,
                        static_cast<unsigned int>(tag) << 4 | type | bytes << 16, v);
  return *this;
}

#endif
