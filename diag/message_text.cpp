#include "diag/message_text.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace qov {

namespace {

/// Where the first conversion that stores through its argument ("%n", whatever stands between)
/// begins in `format`; null when there is none.
const char* findStore(const char* format) {
  for (const char* at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at, '%')) {
    const char* const conversion = at + 1 + std::strspn(at + 1, "-+ #0'I*.123456789$hlqjzZtL");
    if (*conversion == 'n') {
      return at;
    }
    at = *conversion == '\0' ? conversion : conversion + 1;
  }
  return nullptr;
}

}  // namespace

MessageText::MessageText(const char* format, va_list args) {
  buffer_[0] = '\0';
  if (format == nullptr) {
    return;
  }
  if (const char* const store = findStore(format)) {
    print(std::string(format, store).c_str(), args);
  } else {
    print(format, args);
  }
}

void MessageText::print(const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
  if (std::vsnprintf(buffer_, kSize, format, args) < 0) {
    // What a failed call leaves behind the printed part is anybody's guess: make it NULs.
    std::memset(buffer_, 0, kSize);
    static_cast<void>(std::vsnprintf(buffer_, kSize, format, again));
    buffer_[kSize - 1] = '\0';
  }
  va_end(again);
  text_ = std::string_view(buffer_, std::strlen(buffer_));
}

}  // namespace qov
