#ifndef QOVPUB_QOV_MSG_H
#define QOVPUB_QOV_MSG_H

#include <json/forwards.h>
#include <qovpub/detail/record_cells.h>
#include <qovpub/qov_export.h>
#include <qovpub/qov_msg_cell.h>
#include <qovpub/qov_msg_head.h>

#include <cstdint>
#include <memory>
#include <sstream>
#include <string_view>

namespace qov {
class RecordCodec;
}  // namespace qov

template <class MSG_S_HEAD>
class CTLVPackageV3;

/// Bytes of a record's head on the wire: command code and record length.
inline constexpr unsigned int MIN_RECORD_SIZE = 10;

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
class QOV_EXPORT CTLVRecordV3 : private qov::RecordCells {
 public:
  /// The longest record that can be encoded, without its head.
  static constexpr unsigned long kMaxLength = RecordCells::kMaxLength;

  /// A record without cells; `cmd` is its command code.
  explicit CTLVRecordV3(std::uint64_t cmd = 0) noexcept : cmd_(cmd) {}
  /// @{
  /// A deep copy, as of clone().
  CTLVRecordV3(const CTLVRecordV3& other) : RecordCells(), cmd_(0) { clone(other); }
  CTLVRecordV3& operator=(const CTLVRecordV3& other) {
    clone(other);
    return *this;
  }
  /// @}
  /// Takes command code and cells over and leaves `other` its command code, without cells.
  ///
  /// Nothing is allocated; references and iterators to the cells stay valid and belong to this
  /// record. Only one that a package made (addRecord(), decoding, copying) may have to move its
  /// cells out of the package's memory, into new memory; references end there. When there is no
  /// memory, errno is ENOMEM, this record has no cells and `other` keeps them.
  CTLVRecordV3(CTLVRecordV3&& other) noexcept : RecordCells(), cmd_(other.cmd_) { take(other); }
  /// The same for a record that is there already, on its own or in a package; its cells are freed.
  CTLVRecordV3& operator=(CTLVRecordV3&& other) noexcept;
  ~CTLVRecordV3() = default;

  /// @{
  /// The command code; its meaning is up to sender and receiver.
  std::uint64_t cmd() const noexcept { return cmd_; }
  void setCmd(std::uint64_t cmd) noexcept { cmd_ = cmd; }
  /// @}

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
  /// The same.
  void append_int(const CTLVCell* cell);

  /// @{
  /// Append a new cell, as CTLVCell's setter of that name, and return the record. They throw, too,
  /// when the record would grow beyond 65535 bytes.
  CTLVRecordV3& addUnsigned(unsigned short tag, std::uint64_t v) {
    addNumber(CTLVCell::TLV_UINT, tag, v, qov::CellValue::width(v));
    return *this;
  }
  CTLVRecordV3& addSigned(unsigned short tag, std::int64_t v) {
    const unsigned int bytes = qov::CellValue::widthSigned(v);
    addNumber(CTLVCell::TLV_INT, tag, qov::CellValue::cut(v, bytes), bytes);
    return *this;
  }
  CTLVRecordV3& addBool(unsigned short tag, bool v) {
    addNumber(CTLVCell::TLV_BOOL, tag, v ? 1 : 0, 1);
    return *this;
  }
  CTLVRecordV3& addEnum(unsigned short tag, std::uint64_t v) {
    addNumber(CTLVCell::TLV_ENUM, tag, v, qov::CellValue::width(v));
    return *this;
  }
  CTLVRecordV3& addTime(unsigned short tag, std::uint64_t v) {
    addNumber(CTLVCell::TLV_TIME, tag, v, qov::CellValue::width(v));
    return *this;
  }
  CTLVRecordV3& addString(unsigned short tag, std::string_view text) {
    addBytes(CTLVCell::TLV_STRING, tag, text.data(), text.size(), true);
    return *this;
  }
  CTLVRecordV3& addOctets(unsigned short tag, const void* data, unsigned long len) {
    addBytes(CTLVCell::TLV_OCTET, tag, data, data == nullptr ? 0 : len, false);
    return *this;
  }
  /// The same without a copy, as CTLVCell::setOctets() with such bytes.
  CTLVRecordV3& addOctets(unsigned short tag, std::unique_ptr<unsigned char[]> data,
                          unsigned long len);
  CTLVRecordV3& addJson(unsigned short tag, const Json::Value& v);
  /// @}
  /// @{
  /// Appends `cell`, copied or moved. One moved from this record counts twice for the limit.
  CTLVRecordV3& add(const CTLVCell& cell) { return add(CTLVCell(cell)); }
  CTLVRecordV3& add(CTLVCell&& cell);
  /// @}

  /// @{
  /// Puts type and value of `cell`, copied or moved, into the first cell with its tag; references
  /// to that one stay valid. Returns false, with `cell` as it was, when there is none. Throws, too,
  /// when the record would be longer than 65535 bytes, counted as by add().
  bool replace(const CTLVCell& cell) { return replace(CTLVCell(cell)); }
  bool replace(CTLVCell&& cell);
  /// @}

  /// @{
  /// The first cell with `tag`, or null.
  const CTLVCell* find(unsigned short tag) const noexcept { return RecordCells::find(tag); }
  CTLVCell* find(unsigned short tag) noexcept {
    return const_cast<CTLVCell*>(static_cast<const CTLVRecordV3*>(this)->find(tag));
  }
  /// @}
  /// @{
  /// The next cell behind `cell`, a cell of this record, that has the same tag, or null:
  ///
  ///     for (const CTLVCell* cell = r.find(7); cell != nullptr; cell = r.findNext(*cell))
  const CTLVCell* findNext(const CTLVCell& cell) const noexcept;
  CTLVCell* findNext(const CTLVCell& cell) noexcept {
    return const_cast<CTLVCell*>(static_cast<const CTLVRecordV3*>(this)->findNext(cell));
  }
  /// @}
  /// @{
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

  /// @}

  /// @{
  /// The value of the first cell with `tag`; throw when it is missing or of another type. Text and
  /// octets are views into the cell.
  std::uint64_t getUnsigned(unsigned short tag) const { return (*this)[tag].getUnsigned(); }
  std::int64_t getSigned(unsigned short tag) const { return (*this)[tag].getSigned(); }
  bool getBool(unsigned short tag) const { return (*this)[tag].getBool(); }
  std::string_view getString(unsigned short tag) const { return (*this)[tag].getString(); }
  std::string_view getOctets(unsigned short tag) const { return (*this)[tag].getOctets(); }
  Json::Value getJson(unsigned short tag) const;
  /// @}

  /// @{
  /// The same, or `otherwise` when the tag is missing; throw for another type all the same. Text
  /// and octets are views into the cell, or of what `otherwise` is a view of.
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
  std::string_view getString(unsigned short tag, std::string_view otherwise) const {
    const CTLVCell* cell = find(tag);
    return cell == nullptr ? otherwise : cell->getString();
  }
  std::string_view getOctets(unsigned short tag, std::string_view otherwise) const {
    const CTLVCell* cell = find(tag);
    return cell == nullptr ? otherwise : cell->getOctets();
  }
  Json::Value getJson(unsigned short tag, const Json::Value& otherwise) const;
  /// @}

  /// @{
  /// Forward iteration over the cells in their order.
  using const_iterator = qov::CellIterator<const CTLVCell>;
  using iterator = qov::CellIterator<CTLVCell>;

  const_iterator begin() const noexcept { return RecordCells::begin(); }
  const_iterator end() const noexcept { return RecordCells::end(); }
  iterator begin() noexcept { return RecordCells::begin(); }
  iterator end() noexcept { return RecordCells::end(); }
  /// @}

  /// Frees the cell at `at`, which must not be end(), and returns the place of the next one.
  /// References and iterators to cells before it stay valid, those to it and to the cells behind it
  /// do not. References to other cells from append() stay valid, too.
  iterator erase(iterator at) noexcept { return RecordCells::erase(at); }
  /// Frees all cells with `tag` and returns their number.
  unsigned long erase(unsigned short tag) noexcept;

  /// Number of cells.
  unsigned long count() const noexcept { return RecordCells::count(); }
  /// Bytes of the cells on the wire, each 4 and its value; the record's head of 10 not included.
  unsigned long length() const noexcept { return RecordCells::length(); }

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
  friend class qov::RecordCells;
  friend class qov::RecordCodec;
  friend class qov::RecordStore;
  template <class MSG_S_HEAD>
  friend class CTLVPackageV3;

  /// Of a package: the first cells go into `block`.
  CTLVRecordV3(std::uint64_t cmd, qov::RecordStore* store, qov::CellBlock* block) noexcept
      : RecordCells(store, block), cmd_(cmd) {}

  std::uint64_t cmd_;
};

#endif
