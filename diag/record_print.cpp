#include <cstdio>
#include <cstring>

#include "diag/record.h"

namespace qov {

namespace {

/// Whether `c` may stand between "%" and the letter of its conversion.
bool isModifier(char c) {
  return c != '\0' && std::strchr("-+ #0'I*.123456789$hlqjzZtL", c) != nullptr;
}

/// Where the first conversion that stores through its argument ("%n", whatever stands between)
/// begins in `format`; null when there is none.
const char* findStore(const char* format) {
  for (const char* at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at, '%')) {
    const char* conversion = at + 1;
    while (isModifier(*conversion)) {
      ++conversion;
    }
    if (*conversion == 'n') {
      return at;
    }
    at = *conversion == '\0' ? conversion : conversion + 1;
  }
  return nullptr;
}

}  // namespace

void Record::print(const char* format, va_list args) {
  if (format == nullptr) {
    return;
  }
  if (const char* const store = findStore(format)) {
    printBounded(std::string(format, store).c_str(), args);
  } else {
    printBounded(format, args);
  }
}

void Record::printBounded(const char* format, va_list args) {
  constexpr size_t kSize = kLongestPrinted + 1;
  makeRoomFor(kSize);
  char* const at = text_ + size_;
  va_list again;
  va_copy(again, args);
  if (std::vsnprintf(at, kSize, format, args) < 0) {
    // What a failed call leaves behind the printed part is anybody's guess: make it NULs.
    std::memset(at, 0, kSize);
    static_cast<void>(std::vsnprintf(at, kSize, format, again));
    at[kLongestPrinted] = '\0';
  }
  va_end(again);
  size_ += std::strlen(at);
}

}  // namespace qov
