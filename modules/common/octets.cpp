#include "modules/common/octets.h"

#include <cstddef>
#include <cstdint>

namespace qov::common {
namespace {

struct Lead {
  unsigned int length;
  std::uint32_t bits;
  std::uint32_t least;
};

/// What the first byte of a character says; length 0 when it is none.
Lead leadOf(unsigned char byte) {
  if (byte < 0x80) {
    return {1, byte, 0};
  }
  if ((byte & 0xE0) == 0xC0) {
    return {2, byte & 0x1FU, 0x80};
  }
  if ((byte & 0xF0) == 0xE0) {
    return {3, byte & 0x0FU, 0x800};
  }
  if ((byte & 0xF8) == 0xF0) {
    return {4, byte & 0x07U, 0x10000};
  }
  return {0, 0, 0};
}

/// Bytes of the character that `bytes` begins with, or 0.
std::size_t characterLength(std::string_view bytes) {
  const Lead lead = leadOf(static_cast<unsigned char>(bytes[0]));
  if (lead.length == 0 || lead.length > bytes.size()) {
    return 0;
  }
  std::uint32_t code = lead.bits;
  for (std::size_t i = 1; i < lead.length; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    if ((byte & 0xC0) != 0x80) {
      return 0;
    }
    code = code << 6 | (byte & 0x3FU);
  }
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code < lead.least || code > 0x10FFFF || surrogate ? 0 : lead.length;
}

}  // namespace

std::string hexText(std::string_view bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

int hexDigit(char digit) {
  if (digit >= '0' && digit <= '9') {
    return digit - '0';
  }
  if (digit >= 'a' && digit <= 'f') {
    return digit - 'a' + 10;
  }
  if (digit >= 'A' && digit <= 'F') {
    return digit - 'A' + 10;
  }
  return -1;
}

std::optional<std::string> bytesOfHex(std::string_view text) {
  if (text.size() % 2 != 0) {
    return std::nullopt;
  }
  std::string bytes;
  bytes.reserve(text.size() / 2);
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const int high = hexDigit(text[i]);
    const int low = hexDigit(text[i + 1]);
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    bytes += static_cast<char>(high << 4 | low);
  }
  return bytes;
}

bool isUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t length = characterLength(bytes);
    if (length == 0) {
      return false;
    }
    bytes.remove_prefix(length);
  }
  return true;
}

}  // namespace qov::common
