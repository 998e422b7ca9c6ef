#ifndef QOVPUB_DETAIL_CELL_BYTES_H
#define QOVPUB_DETAIL_CELL_BYTES_H

#include <cstddef>
#include <cstdint>
#include <cstring>

// Moves of a few bytes. A call to the general copy costs more than all else that is done for a
// small cell.
namespace qov {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "messages are in the byte order of the host, and that is little-endian");

template <class Word>
inline Word loadWord(const unsigned char* p) noexcept {
  Word word;
  std::memcpy(&word, p, sizeof word);
  return word;
}

template <class Word>
inline void storeWord(unsigned char* p, Word word) noexcept {
  std::memcpy(p, &word, sizeof word);
}

/// The `n` bytes (0 to 8) at `p`, zero-extended. Reads those bytes only.
inline std::uint64_t loadUpTo8(const unsigned char* p, unsigned int n) noexcept {
  if (n == 8) {
    return loadWord<std::uint64_t>(p);
  }
  if (n >= 4) {
    const std::uint64_t high = loadWord<std::uint32_t>(p + n - 4);
    return loadWord<std::uint32_t>(p) | high << (n - 4) * 8;
  }
  if (n >= 2) {
    const std::uint64_t high = loadWord<std::uint16_t>(p + n - 2);
    return loadWord<std::uint16_t>(p) | high << (n - 2) * 8;
  }
  return n == 0 ? 0 : *p;
}

/// Copies `n` bytes, and a NUL if `nul`, into a cell's inside `to`: 19 bytes at most, of which the
/// first 8 are padded with zeros. All is read before anything is written: the ranges may overlap.
inline void copySmall(unsigned char* to, const unsigned char* from, unsigned int n,
                      bool nul) noexcept {
  if (n <= 8) {
    storeWord(to, loadUpTo8(from, n));
  } else {
    const auto first = loadWord<std::uint64_t>(from);
    const auto last = loadWord<std::uint64_t>(from + n - 8);
    if (n > 16) {
      const auto middle = loadWord<std::uint64_t>(from + 8);
      storeWord(to + 8, middle);
    }
    storeWord(to, first);
    storeWord(to + n - 8, last);
  }
  if (nul) {
    to[n] = 0;
  }
}

/// Writes the lowest `n` bytes (0 to 8) of `word` and nothing more.
inline void storeUpTo8(unsigned char* to, std::uint64_t word, unsigned int n) noexcept {
  if (n == 8) {
    storeWord(to, word);
  } else if (n >= 4) {
    storeWord(to, static_cast<std::uint32_t>(word));
    storeWord(to + n - 4, static_cast<std::uint32_t>(word >> (n - 4) * 8));
  } else if (n >= 2) {
    storeWord(to, static_cast<std::uint16_t>(word));
    storeWord(to + n - 2, static_cast<std::uint16_t>(word >> (n - 2) * 8));
  } else if (n == 1) {
    *to = static_cast<unsigned char>(word);
  }
}

/// Copies all 19 bytes of a cell's inside, whatever their number that counts.
inline void copyInside(unsigned char* to, const unsigned char* from) noexcept {
  storeWord(to, loadWord<std::uint64_t>(from));
  storeWord(to + 8, loadWord<std::uint64_t>(from + 8));
  storeWord(to + 15, loadWord<std::uint32_t>(from + 15));
}

/// Copies `n` bytes, 16 at least, to where they do not overlap. A few are copied here; for many the
/// general copy is the faster one.
inline void copyLong(unsigned char* to, const unsigned char* from, std::size_t n) noexcept {
  constexpr std::size_t kStep = 16;
  constexpr std::size_t kFew = 8 * kStep;
  if (n > kFew) {
    std::memcpy(to, from, n);
    return;
  }
  for (std::size_t at = 0; at + kStep < n; at += kStep) {
    std::memcpy(to + at, from + at, kStep);
  }
  std::memcpy(to + n - kStep, from + n - kStep, kStep);
}

}  // namespace qov

#endif
