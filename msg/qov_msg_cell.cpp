#include <qovpub/detail/cell_bytes.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_msg.h>

#include <cerrno>
#include <iterator>
#include <new>
#include <string>
#include <utility>

CTLVCell::CTLVCell(ETLVType type, unsigned short tag, const void* data, unsigned long len)
    : CTLVCell() {
  set_i(type, tag, data, len);
}

CTLVCell::CTLVCell(const CTLVCell& other) : CTLVCell() {
  *this = other;
}

CTLVCell::CTLVCell(CTLVCell&& other) noexcept : CTLVCell() {
  *this = std::move(other);
}

CTLVCell& CTLVCell::operator=(const CTLVCell& other) {
  replaceOrThrow(other.typeTag(), other.value(), other.length(), false);
  return *this;
}

CTLVCell& CTLVCell::operator=(CTLVCell&& other) noexcept {
  if (this != &other && other.ownValue()) {
    const std::uint32_t before = head_;
    freeValue();
    take(other);
    tellChange(before);
  }
  return *this;
}

bool CTLVCell::operator==(const CTLVCell& other) const noexcept {
  return head_ == other.head_ && std::memcmp(value(), other.value(), length()) == 0;
}

void CTLVCell::set_i(ETLVType type, unsigned short tag, const void* data, unsigned long len) {
  replaceOrThrow(packed(type, tag), data, data == nullptr ? 0 : len, false);
}

void CTLVCell::setCell(unsigned short typeTag, const char* data, unsigned long len) {
  const bool empty = data == nullptr || len == 0;
  replaceOrThrow(empty ? this->typeTag() : typeTag, data, empty ? 0 : len, false);
}

void CTLVCell::setString(unsigned short tag, std::string_view text) {
  replaceOrThrow(packed(TLV_STRING, tag), text.data(), text.size(), true);
}

void CTLVCell::setOctets(unsigned short tag, std::unique_ptr<unsigned char[]> data,
                         unsigned long len) {
  if (data == nullptr || len <= kInside) {
    setOctets(tag, data.get(), len);
    return;
  }
  const unsigned short typeTag = packed(TLV_OCTET, tag);
  checkLength(len, false);
  const std::uint32_t before = head_;
  freeValue();
  storePointer(data.release());
  setHead(typeTag, static_cast<unsigned int>(len));
  tellChange(before);
}

bool qov::CellValue::replace(unsigned int typeTag, const void* data, unsigned int len,
                             bool nul) noexcept {
  const auto* bytes = static_cast<const unsigned char*>(data);
  const unsigned int total = len + (nul ? 1U : 0U);
  unsigned char* const old = outside() && !lent() ? pointer<unsigned char>() : nullptr;
  if (lent()) {
    leaveBlock();
  }
  if (total <= kInside) {
    qov::copySmall(value_, bytes, len, nul);
  } else {
    auto* to = new (std::nothrow) unsigned char[total];
    if (to == nullptr) {
      errno = ENOMEM;
      return false;
    }
    std::memcpy(to, bytes, len);
    if (nul) {
      to[len] = 0;
    }
    storePointer(to);
  }
  setHead(typeTag, total);
  delete[] old;
  return true;
}

void qov::CellValue::throwTooLong(unsigned long len) {
  throw CQOV_Exception("value is too long, length is " + std::to_string(len));
}

void qov::CellValue::replaceOrThrow(unsigned int typeTag, const void* data, unsigned long len,
                                    bool nul) {
  checkLength(len, nul);
  const std::uint32_t before = head_;
  if (!replace(typeTag, data, static_cast<unsigned int>(len), nul)) {
    throw std::bad_alloc();
  }
  tellChange(before);
}

void CTLVCell::checkNumerical() const {
  if (type() <= TLV_STRING) {
    throw CQOV_Exception("CTLVCell isn't numerical type! tag equal to " + std::to_string(tag()));
  }
}

const char* CTLVCell::typeName(unsigned int type) noexcept {
  static constexpr const char* kNames[] = {"Invalid", "Octet", "String", "Uint", "Int",
                                           "Bool",    "Enum",  "Array",  "Json", "Time"};
  return type < std::size(kNames) ? kNames[type] : kNames[TLV_INVALID];
}

void qov::CellValue::throwWrongType(const char* wanted) const {
  throw CQOV_Exception(std::string("CTLVCell isn't ") + wanted + " type! tag equal to " +
                       std::to_string(typeTag() >> 4) + ", type is " + CTLVCell::typeName(type()));
}

void qov::CellValue::throwBadTag(unsigned short tag) {
  throw CQOV_Exception("tag is big than MAX_TAG_VALUE, tag is " + std::to_string(tag));
}
