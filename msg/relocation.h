#ifndef MSG_RELOCATION_H
#define MSG_RELOCATION_H

#include <cstddef>
#include <cstdint>

namespace qov {

/// Memory that was copied byte by byte to another place and is given up at the old one.
///
/// Thread: no state that changes.
/// Owns:   nothing.
/// Errors: none.
class Relocation {
 public:
  Relocation(const unsigned char* from, unsigned char* to, std::size_t bytes) noexcept
      : from_(reinterpret_cast<std::uintptr_t>(from)), to_(to), bytes_(bytes) {}

  /// Lets `p` follow if it points into the memory, or to its end. Returns whether it does.
  template <class T>
  bool operator()(T*& p) const noexcept {
    const std::uintptr_t distance = reinterpret_cast<std::uintptr_t>(p) - from_;
    if (distance > bytes_) {
      return false;
    }
    p = reinterpret_cast<T*>(to_ + distance);
    return true;
  }

 private:
  const std::uintptr_t from_;
  unsigned char* const to_;
  const std::size_t bytes_;
};

}  // namespace qov

#endif
