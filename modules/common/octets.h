#ifndef QOV_MODULES_COMMON_OCTETS_H
#define QOV_MODULES_COMMON_OCTETS_H

#include <optional>
#include <string>
#include <string_view>

namespace qov::common {

/// The bytes in lower-case hexadecimal digits, two each.
std::string hexText(std::string_view bytes);

/// The value of one hexadecimal digit of either case, or -1.
int hexDigit(char digit);

/// The bytes that `text` shows in hexadecimal digits, or nothing when it is no such text.
std::optional<std::string> bytesOfHex(std::string_view text);

/// Whether the bytes are UTF-8: no surrogates, no longer form than needed, nothing above 0x10FFFF.
bool isUtf8(std::string_view bytes);

}  // namespace qov::common

#endif
