#ifndef QOV_PLATFORM_WHOLE_NUMBER_H
#define QOV_PLATFORM_WHOLE_NUMBER_H

#include <charconv>
#include <cstring>
#include <system_error>

namespace qov::platform {

/// Reads `text` into `number` if the whole of it is decimal digits and the value fits.
template <class Unsigned>
bool parseWholeNumber(const char* text, Unsigned& number) {
  const char* end = text + std::strlen(text);
  Unsigned value = 0;
  const auto [stop, error] = std::from_chars(text, end, value);
  if (error != std::errc() || stop != end) {
    return false;
  }
  number = value;
  return true;
}

}  // namespace qov::platform

#endif
