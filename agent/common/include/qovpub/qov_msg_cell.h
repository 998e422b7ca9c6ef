#ifndef QOVPUB_QOV_MSG_CELL_H
#define QOVPUB_QOV_MSG_CELL_H

#include <json/forwards.h>
#include <qovpub/detail/cell_value.h>
#include <qovpub/qov_export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace qov {
class CellBlock;
class RecordCells;
class RecordCodec;
}  // namespace qov

/// The largest tag of a cell.
inline constexpr unsigned short MAX_TAG_VALUE = qov::CellValue::kMaxTag;
/// Bytes of a cell's head on the wire: type and tag, and value length.
inline constexpr unsigned int MIN_TLV_SIZE = 4;

/// One tagged, typed value.
///
/// Values of up to 19 bytes live inside the cell. A longer one is an allocation, or stands in the
/// memory of the package that has made the cell. An empty value has an oddity that is kept: a cell
/// of length 0 arrives at the receiver with tag 4094 and no type, since decoding goes through
/// setCell().
///
/// Thread: a value; const operations may run in several threads at once.
/// Owns:   its value. A cell of a record is a part of that record: a change of its tag or length
///         changes the record, too.
/// Errors: CQOV_Exception for a tag above 4095, a value above 65535 bytes, and a typed getter on a
///         cell of another type; the cell is unchanged then. std::bad_alloc with errno ENOMEM when
///         there is no memory for the value, the cell is unchanged too.
class QOV_EXPORT CTLVCell : private qov::CellValue {
 public:
  /// The types, by their codes on the wire. Numbers are little-endian there.
  enum ETLVType : unsigned short {
    TLV_INVALID = 0,  ///< of a cell that was given no type
    TLV_OCTET = 1,    ///< any bytes
    TLV_STRING = 2,   ///< text, up to its first NUL
    TLV_UINT = 3,     ///< an unsigned number of 1, 2, 4 or 8 bytes
    TLV_INT = 4,      ///< a signed one
    TLV_BOOL = 5,     ///< one byte, 0 for false
    TLV_ENUM = 6,     ///< as TLV_UINT; what the numbers mean is up to sender and receiver
    TLV_ARRAY = 7,    ///< JSON text of an array
    TLV_JSON = 8,     ///< JSON text of anything else
    TLV_TIME = 9      ///< as TLV_UINT; the unit is up to sender and receiver
  };

  /// The longest value: its length travels in 16 bits.
  static constexpr unsigned long kMaxLength = CellValue::kMaxLength;

  /// An empty cell without a type, tag 4094.
  CTLVCell() noexcept : CTLVCell(Place::kAlone) {}
  /// As set_i() on an empty cell.
  CTLVCell(ETLVType type, unsigned short tag, const void* data, unsigned long len);
  /// A copy of type, tag and value, whichever record `other` belongs to.
  CTLVCell(const CTLVCell& other);
  /// Takes the value over and leaves `other` empty, its type and tag as they are. Only a long value
  /// in a package's memory has to be copied; when there is no memory for that, errno is ENOMEM and
  /// both cells are as they were. std::swap() of such cells loses one of the values then.
  CTLVCell(CTLVCell&& other) noexcept;
  /// @{
  /// As the constructors, for a cell that is there already and stays in its record.
  CTLVCell& operator=(const CTLVCell& other);
  CTLVCell& operator=(CTLVCell&& other) noexcept;
  /// @}
  ~CTLVCell() = default;

  /// @{
  /// Compare type, tag, length and bytes.
  bool operator==(const CTLVCell& other) const noexcept;
  bool operator!=(const CTLVCell& other) const noexcept { return !(*this == other); }
  /// @}

  /// Sets type and tag and copies `len` bytes, which may lie in this cell's own value. `data` null
  /// or `len` 0 makes the value empty.
  void set_i(ETLVType type, unsigned short tag, const void* data, unsigned long len);

  /// Stores `v` as compact JSON text with a NUL: type Array when it is an array, else Json. The
  /// text is the same in every locale.
  void set(unsigned short tag, const Json::Value& v);

  /// Stores type and tag packed as on the wire (tag << 4 | type, unchecked) and a copy of the
  /// bytes. With `data` null or `len` 0 the value becomes empty and type and tag stay what they
  /// were; that differs from set_i() and is kept, decoding relies on it.
  void setCell(unsigned short typeTag, const char* data, unsigned long len);

  /// @{
  /// Store a number in the fewest of 1, 2, 4 and 8 bytes; a bool takes one.
  void setUnsigned(unsigned short tag, std::uint64_t v) { setNumber(TLV_UINT, tag, v, width(v)); }
  void setSigned(unsigned short tag, std::int64_t v) {
    setNumber(TLV_INT, tag, cut(v, widthSigned(v)), widthSigned(v));
  }
  void setBool(unsigned short tag, bool v) { setNumber(TLV_BOOL, tag, v ? 1 : 0, 1); }
  void setEnum(unsigned short tag, std::uint64_t v) { setNumber(TLV_ENUM, tag, v, width(v)); }
  void setTime(unsigned short tag, std::uint64_t v) { setNumber(TLV_TIME, tag, v, width(v)); }
  /// @}
  /// Stores the text and its NUL, 65535 bytes in all. It is read back up to its first NUL.
  void setString(unsigned short tag, std::string_view text);
  /// As set_i() with type Octet.
  void setOctets(unsigned short tag, const void* data, unsigned long len) {
    set_i(TLV_OCTET, tag, data, len);
  }
  /// The same without a copy: takes `data` over, `len` bytes from `new unsigned char[]`. Null makes
  /// the value empty. When it throws, the bytes are freed.
  void setOctets(unsigned short tag, std::unique_ptr<unsigned char[]> data, unsigned long len);
  /// As set().
  void setJson(unsigned short tag, const Json::Value& v) { set(tag, v); }

  // Typed getters.

  /// The value of a Uint, Bool, Enum or Time cell.
  std::uint64_t getUnsigned() const {
    require(1U << TLV_UINT | 1U << TLV_BOOL | 1U << TLV_ENUM | 1U << TLV_TIME, "unsigned");
    return number();
  }
  /// The value of an Int cell.
  std::int64_t getSigned() const {
    require(1U << TLV_INT, "signed");
    return static_cast<std::int64_t>(number());
  }
  /// Whether the number of a Bool cell is another than 0.
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
  ///
  /// JsonCpp reads numbers with a fraction or exponent as the global C++ locale writes them. Where
  /// that has another decimal point than ".", it takes 1.5 for no JSON, or for 1. A program that
  /// sets a global locale and reads such values keeps the numbers out of it:
  /// std::locale::global(std::locale(l, std::locale::classic(), std::locale::numeric)).
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
  std::uint64_t number() const noexcept { return CellValue::number(type() == TLV_INT); }

  /// The value as text: octets and text as they are, an Array through buildArrayValue(), numbers in
  /// decimal. Bool, Enum and Time print signed here although a dump prints them unsigned; kept.
  std::string toString() const;

  /// The elements of the Array cell `cell`, separated by commas and without brackets; empty when
  /// its text is no array. Kept as they are: an integer that fits 32 bits signed and unsigned is
  /// written twice in a row, and an element that is neither such an integer nor a string writes
  /// nothing.
  std::string buildArrayValue(const CTLVCell& cell) const;

  /// 0 to 4095; 4094 in a cell that was given none.
  unsigned short tag() const noexcept { return typeTag() >> 4; }
  /// An ETLVType; in a cell of setCell() maybe a code of 10 to 15, which has no name there.
  ETLVType type() const noexcept { return static_cast<ETLVType>(CellValue::type()); }
  /// Both packed as on the wire: tag << 4 | type.
  unsigned short typeTag() const noexcept { return CellValue::typeTag(); }
  /// Bytes of the value, a text's NUL included: 0 to 65535.
  unsigned short length() const noexcept { return CellValue::length(); }
  /// The `length()` bytes of the value, valid until the cell is changed or destroyed. They need not
  /// end in a NUL, also in a text cell: what came over the wire is kept as it came.
  const unsigned char* value() const noexcept { return CellValue::value(); }
  /// The value up to its first NUL or its end, whatever the type; a view into the cell.
  std::string_view text() const noexcept { return CellValue::text(); }

  /// The name of a type as dumps print it; "Invalid" for a code above 9.
  static const char* typeName(unsigned int type) noexcept;

 private:
  friend class CTLVRecordV3;
  friend class qov::CellBlock;
  friend class qov::RecordCells;
  friend class qov::RecordCodec;

  explicit CTLVCell(Place place) noexcept : CTLVCell(place, kUnsetTypeTag, 0) {}
  /// A cell that holds the number `v`; `head` says how many bytes of it count.
  CTLVCell(Place place, std::uint32_t head, std::uint64_t v) noexcept : CellValue(place, head, v) {}
  /// Takes over the value of `other`, which must not be lent.
  CTLVCell(Place place, CTLVCell&& other) noexcept : CTLVCell(place) { take(other); }
};
static_assert(sizeof(CTLVCell) == 24, "what a block of cells holds is reckoned with this");

#endif
