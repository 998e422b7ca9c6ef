#include <qovpub/qov_exception.h>
#include <qovpub/qov_msg.h>

#include <cerrno>
#include <cstddef>
#include <new>

#include "msg/cell_bytes.h"

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
  replaceOrThrow(other.value(), other.length_, false);
  typeTag_ = other.typeTag_;
  return *this;
}

CTLVCell& CTLVCell::operator=(CTLVCell&& other) noexcept {
  if (this != &other) {
    freeValue();
    std::memcpy(value_, other.value_, sizeof value_);
    length_ = other.length_;
    typeTag_ = other.typeTag_;
    other.length_ = 0;
    other.storeNumber(0);
  }
  return *this;
}

bool CTLVCell::operator==(const CTLVCell& other) const noexcept {
  return typeTag_ == other.typeTag_ && length_ == other.length_ &&
         std::memcmp(value(), other.value(), length_) == 0;
}

void CTLVCell::set_i(ETLVType type, unsigned short tag, const void* data, unsigned long len) {
  const unsigned short typeTag = packed(type, tag);
  replaceOrThrow(data, data == nullptr ? 0 : len, false);
  typeTag_ = typeTag;
}

void CTLVCell::setCell(unsigned short typeTag, const char* data, unsigned long len) {
  const bool empty = data == nullptr || len == 0;
  replaceOrThrow(data, empty ? 0 : len, false);
  if (!empty) {
    typeTag_ = typeTag;
  }
}

void CTLVCell::setSigned(unsigned short tag, std::int64_t v) {
  // The shortest form that reads back the same: one bit more than the magnitude needs.
  const auto magnitude = static_cast<std::uint64_t>(v < 0 ? ~v : v);
  const unsigned short bytes = width(magnitude << 1 | (magnitude >> 63));
  const std::uint64_t keep = bytes == 8 ? ~0ULL : (1ULL << bytes * 8) - 1;
  setNumber(TLV_INT, tag, static_cast<std::uint64_t>(v) & keep, bytes);
}

void CTLVCell::setString(unsigned short tag, std::string_view text) {
  const unsigned short typeTag = packed(TLV_STRING, tag);
  replaceOrThrow(text.data(), text.size(), true);
  typeTag_ = typeTag;
}

bool CTLVCell::replaceValue(const void* data, unsigned short len, bool nul) noexcept {
  const auto* bytes = static_cast<const unsigned char*>(data);
  const unsigned int total = len + (nul ? 1U : 0U);
  unsigned char* const old = outside() ? heap() : nullptr;
  unsigned char* to = value_;
  if (total <= kInside) {
    qov::copySmall(value_, bytes, len);
  } else {
    to = new (std::nothrow) unsigned char[total];
    if (to == nullptr) {
      errno = ENOMEM;
      return false;
    }
    std::memcpy(to, bytes, len);
    std::memcpy(value_, &to, sizeof to);
  }
  if (nul) {
    to[len] = 0;
  }
  length_ = static_cast<unsigned short>(total);
  delete[] old;
  return true;
}

void CTLVCell::replaceOrThrow(const void* data, unsigned long len, bool nul) {
  if (len > kMaxLength - (nul ? 1 : 0)) {
    throw CQOV_Exception("value is too long, length is " + std::to_string(len));
  }
  if (!replaceValue(data, static_cast<unsigned short>(len), nul)) {
    throw std::bad_alloc();
  }
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

void CTLVCell::throwWrongType(const char* wanted) const {
  throw CQOV_Exception(std::string("CTLVCell isn't ") + wanted + " type! tag equal to " +
                       std::to_string(tag()) + ", type is " + typeName(type()));
}

void CTLVCell::throwBadTag(unsigned short tag) {
  throw CQOV_Exception("tag is big than MAX_TAG_VALUE, tag is " + std::to_string(tag));
}
