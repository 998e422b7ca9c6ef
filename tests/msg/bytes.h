#ifndef QOV_TESTS_MSG_BYTES_H
#define QOV_TESTS_MSG_BYTES_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

namespace qov::tests {

/// Builds messages byte by byte, little-endian, apart from the encoder.
class Bytes {
 public:
  Bytes& u8(unsigned int v) { return number(v, 1); }
  Bytes& u16(unsigned int v) { return number(v, 2); }
  Bytes& u32(std::uint64_t v) { return number(v, 4); }
  Bytes& u64(std::uint64_t v) { return number(v, 8); }
  Bytes& text(std::string_view v) {
    data_.insert(data_.end(), v.begin(), v.end());
    return *this;
  }
  Bytes& fill(std::size_t count, unsigned char v) {
    data_.insert(data_.end(), count, v);
    return *this;
  }

  /// A V3 header with defaults and that LEN.
  Bytes& headV3(std::uint64_t len) {
    u32(0x55555555).u32(3).u32(0).u32(0xFFFFFFFF);
    return u16(0xFFFD).u16(0xFFFF).u16(0xFFFF).u16(0xFFFF).u32(len);
  }
  /// An internal header of a request.
  Bytes& head(std::uint64_t len, unsigned int type = 1) {
    u32(20080808).u8(1).u8(type).u8(0).u8(255).u8(255).u8(255).u8(255).u8(0);
    return u32(0xFFFFFFFF).u32(7).u64(0x1122334455667788).u32(len);
  }
  Bytes& record(std::uint64_t cmd, unsigned int length) { return u64(cmd).u16(length); }
  Bytes& cell(unsigned int tag, unsigned int type, unsigned int length) {
    return u16(tag << 4 | type).u16(length);
  }

  std::vector<unsigned char>& data() { return data_; }
  const std::vector<unsigned char>& data() const { return data_; }
  unsigned char* begin() { return data_.data(); }
  unsigned int size() const { return static_cast<unsigned int>(data_.size()); }
  Bytes& set(std::size_t at, unsigned char v) {
    data_.at(at) = v;
    return *this;
  }

 private:
  Bytes& number(std::uint64_t v, unsigned int bytes) {
    for (unsigned int i = 0; i < bytes; ++i) {
      data_.push_back(static_cast<unsigned char>(v >> 8 * i));
    }
    return *this;
  }

  std::vector<unsigned char> data_;
};

/// Memory that ends where access ends: the first byte behind it faults, in every build.
class FencedMemory {
 public:
  explicit FencedMemory(std::size_t size)
      : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
        bytes_((size / page_ + 2) * page_),
        map_(mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
    if (map_ == MAP_FAILED ||
        mprotect(static_cast<char*>(map_) + bytes_ - page_, page_, PROT_NONE) != 0) {
      throw std::bad_alloc();
    }
    begin_ = static_cast<unsigned char*>(map_) + bytes_ - page_ - size;
  }
  explicit FencedMemory(const std::vector<unsigned char>& content) : FencedMemory(content.size()) {
    if (!content.empty()) {
      std::memcpy(begin_, content.data(), content.size());
    }
  }
  ~FencedMemory() { munmap(map_, bytes_); }
  FencedMemory(const FencedMemory&) = delete;
  FencedMemory& operator=(const FencedMemory&) = delete;

  unsigned char* begin() { return begin_; }

 private:
  const std::size_t page_;
  const std::size_t bytes_;
  void* const map_;
  unsigned char* begin_ = nullptr;
};

}  // namespace qov::tests

#endif
