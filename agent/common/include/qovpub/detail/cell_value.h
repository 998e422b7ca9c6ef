#ifndef QOVPUB_DETAIL_CELL_VALUE_H
#define QOVPUB_DETAIL_CELL_VALUE_H

#include <json/forwards.h>
#include <qovpub/qov_export.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>

namespace qov {

/// What a CTLVCell is made of: type, tag, length and value, and where the cell stands. CTLVCell
/// hides it all from its users.
///
/// Thread: as CTLVCell.
/// Owns:   a long value, unless that is lent.
/// Errors: as CTLVCell.
class QOV_EXPORT CellValue {
 public:
  /// Where a cell stands: on its own; on its own but owned by a record; in a record's block; or it
  /// only holds the place, in a record's block, of a cell that stands elsewhere. The number of a
  /// cell in a block is kInBlock or higher and says where in the block it stands.
  enum class Place : unsigned char { kAlone, kAdopted, kStandIn, kInBlock };

  static constexpr unsigned short kMaxTag = 4095;
  static constexpr unsigned long kMaxLength = 65535;
  static constexpr unsigned short kInside = 19;
  static constexpr unsigned short kUnsetTypeTag = 4094U << 4;

  CellValue(const CellValue&) = delete;
  CellValue& operator=(const CellValue&) = delete;

  unsigned short typeTag() const noexcept { return static_cast<unsigned short>(head_); }
  unsigned short length() const noexcept { return static_cast<unsigned short>(head_ >> 16); }
  unsigned int type() const noexcept { return head_ & 0xF; }
  const unsigned char* value() const noexcept {
    return outside() ? pointer<const unsigned char>() : value_;
  }
  std::string_view text() const noexcept {
    const char* bytes = reinterpret_cast<const char*>(value());
    return {bytes, outside() ? ::strnlen(bytes, length()) : insideTextLength()};
  }
  /// `isSigned`: sign-extended.
  std::uint64_t number(bool isSigned) const noexcept;

  void setHead(unsigned int typeTag, unsigned int length) noexcept {
    head_ = typeTag | length << 16;
  }
  bool outside() const noexcept { return length() > kInside; }
  template <class T>
  T* pointer() const noexcept {
    void* there;
    std::memcpy(&there, value_, sizeof there);
    return static_cast<T*>(there);
  }
  void storePointer(const void* there, bool lent = false) noexcept {
    std::memcpy(value_, &there, sizeof there);
    value_[sizeof there] = lent ? 1 : 0;
  }
  /// Whether the value stands in the memory of the cell's block, which frees it.
  bool lent() const noexcept { return outside() && value_[sizeof(void*)] != 0; }
  /// Makes a lent value an allocation. Returns false, with errno ENOMEM and the cell as it was,
  /// when there is no memory.
  bool ownValue() noexcept {
    return !lent() || replace(typeTag(), pointer<void>(), length(), false);
  }
  void ownValueOrThrow() {
    if (!ownValue()) {
      throw std::bad_alloc();
    }
  }
  void storeNumber(std::uint64_t v) noexcept { std::memcpy(value_, &v, sizeof v); }
  void freeValue() noexcept {
    if (lent()) {
      leaveBlock();
    } else if (outside()) {
      delete[] pointer<unsigned char>();
    }
  }
  /// A lent value is given up: the record learns that the cell may own memory from here on.
  void leaveBlock() noexcept;
  void setNumber(unsigned int type, unsigned short tag, std::uint64_t v, unsigned int bytes);
  /// Takes the value of `other` over, which must not be lent; there must be none here.
  void take(CellValue& other) noexcept {
    const std::uint32_t othersBefore = other.head_;
    std::memcpy(value_, other.value_, sizeof value_);
    head_ = othersBefore;
    other.storeNumber(0);
    other.setHead(other.typeTag(), 0);
    other.tellChange(othersBefore);
  }
  /// To be called after a change through a reference: a record goes by its cells' tags and lengths.
  void tellChange(std::uint32_t headBefore) noexcept {
    if (place_ != Place::kAlone && head_ != headBefore) {
      tellRecord(headBefore);
    }
  }
  void tellRecord(std::uint32_t headBefore) noexcept;
  /// Sets type and tag and copies the value, plus a NUL if `nul`. Returns false, with errno ENOMEM
  /// and the cell as it was, when there is no memory.
  bool replace(unsigned int typeTag, const void* data, unsigned int len, bool nul) noexcept;
  void replaceOrThrow(unsigned int typeTag, const void* data, unsigned long len, bool nul);
  bool parse(Json::Value& v) const;
  /// Bytes of an inside value before its first NUL.
  std::size_t insideTextLength() const noexcept;

  void require(unsigned int types, const char* wanted) const {
    if ((types >> type() & 1U) == 0) {
      throwWrongType(wanted);
    }
  }
  static void checkLength(unsigned long len, bool nul) {
    if (len > kMaxLength - (nul ? 1 : 0)) {
      throwTooLong(len);
    }
  }
  /// Type and tag as on the wire; throws for a tag that is too large.
  static unsigned short packed(unsigned int type, unsigned short tag) {
    if (tag > kMaxTag) {
      throwBadTag(tag);
    }
    return static_cast<unsigned short>(static_cast<unsigned int>(tag) << 4 | (type & 0xF));
  }
  /// 1, 2, 4 or 8, without a branch that small and large values in turn would mispredict.
  static unsigned int width(std::uint64_t v) noexcept {
    return 1U + (v > 0xFF ? 1U : 0U) + (v > 0xFFFF ? 2U : 0U) + (v > 0xFFFFFFFF ? 4U : 0U);
  }
  /// The shortest form that reads back the same needs one bit more than the magnitude.
  static unsigned int widthSigned(std::int64_t v) noexcept {
    const auto magnitude = static_cast<std::uint64_t>(v < 0 ? ~v : v);
    return magnitude >> 62 == 0 ? width(magnitude << 1) : 8;
  }
  static std::uint64_t cut(std::int64_t v, unsigned int bytes) noexcept {
    return static_cast<std::uint64_t>(v) & ~0ULL >> (8 - bytes) * 8;
  }
  [[noreturn]] void throwWrongType(const char* wanted) const;
  [[noreturn]] static void throwTooLong(unsigned long len);
  [[noreturn]] static void throwBadTag(unsigned short tag);

  // A value of at most 8 bytes is padded with zeros to 8; bytes that no value has used are zeros,
  // since the search for a text's end and the encoder read all of them. A value of more than
  // kInside bytes stands elsewhere: here is its address and, in the next byte, whether it is lent.
  alignas(8) unsigned char value_[kInside];
  Place place_;
  // As on the wire: type and tag in the lower half, the length in the upper.
  std::uint32_t head_;

 protected:
  /// Holds the number `v`; `head` says how many bytes of it count.
  CellValue(Place place, std::uint32_t head, std::uint64_t v) noexcept
      : value_{}, place_(place), head_(head) {
    storeNumber(v);
  }
  ~CellValue() { freeValue(); }
};

inline void CellValue::setNumber(unsigned int type, unsigned short tag, std::uint64_t v,
                                 unsigned int bytes) {
  const unsigned short typeTag = packed(type, tag);
  const std::uint32_t before = head_;
  freeValue();
  storeNumber(v);
  setHead(typeTag, bytes);
  tellChange(before);
}

inline std::uint64_t CellValue::number(bool isSigned) const noexcept {
  std::uint64_t raw;
  std::memcpy(&raw, value(), sizeof raw);
  if (!isSigned) {
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

inline std::size_t CellValue::insideTextLength() const noexcept {
  // Eight bytes at a time: the lowest set bit of `zeros` marks the first zero byte. Branches, since
  // the texts under one tag tend to be of one length.
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

}  // namespace qov

#endif
