#include "diag/escapes.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace qov {

namespace {

/// The range that the byte behind the first one of a UTF-8 sequence is in; those behind it are from
/// 80 to BF.
struct Lead {
  std::size_t length;  ///< of the sequence; 0 where `first` begins none
  unsigned char least;
  unsigned char most;
};

Lead leadOf(unsigned char first) {
  if (first >= 0xC2 && first <= 0xDF) {
    return {2, 0x80, 0xBF};
  }
  if (first >= 0xE0 && first <= 0xEF) {
    const bool isSurrogate = first == 0xED;
    return {3, first == 0xE0 ? std::uint8_t{0xA0} : std::uint8_t{0x80},
            isSurrogate ? std::uint8_t{0x9F} : std::uint8_t{0xBF}};
  }
  if (first >= 0xF0 && first <= 0xF4) {
    return {4, first == 0xF0 ? std::uint8_t{0x90} : std::uint8_t{0x80},
            first == 0xF4 ? std::uint8_t{0x8F} : std::uint8_t{0xBF}};
  }
  return {0, 0, 0};
}

unsigned char byteOf(std::string_view text, std::size_t at) {
  return static_cast<unsigned char>(text[at]);
}

/// The length of the character from 80 on that `text` begins with; 0 if it is no UTF-8.
std::size_t wideCharacter(std::string_view text) {
  const Lead lead = leadOf(byteOf(text, 0));
  if (lead.length == 0 || text.size() < lead.length || byteOf(text, 1) < lead.least ||
      byteOf(text, 1) > lead.most) {
    return 0;
  }
  for (std::size_t at = 2; at < lead.length; ++at) {
    if ((byteOf(text, at) & 0xC0) != 0x80) {
      return 0;
    }
  }
  return lead.length;
}

/// The length of the character that `text` begins with; 0 if that needs an escape.
std::size_t plainCharacter(std::string_view text, Escapes way) {
  const unsigned char first = byteOf(text, 0);
  if (first >= 0x80) {
    return way == Escapes::kJson ? wideCharacter(text) : 1;
  }
  const bool needsEscape =
      first < 0x20 || first == '\\' || first == (way == Escapes::kJson ? '"' : 0x7F);
  return needsEscape ? 0 : 1;
}

std::size_t plainBeginning(std::string_view text, Escapes way) {
  std::size_t size = 0;
  while (size < text.size()) {
    const std::size_t character = plainCharacter(text.substr(size), way);
    if (character == 0) {
      break;
    }
    size += character;
  }
  return size;
}

/// Has room for what one byte becomes.
struct Escaped {
  std::array<char, 6> text;
  std::size_t size;
};

Escaped escaped(unsigned char byte, Escapes way) {
  if (byte == '\\' || byte == '"') {
    return {{'\\', static_cast<char>(byte)}, 2};
  }
  if (byte == '\n' || byte == '\r') {
    return {{'\\', byte == '\n' ? 'n' : 'r'}, 2};
  }
  constexpr const char* kDigits = "0123456789abcdef";
  const char high = kDigits[byte >> 4U];
  const char low = kDigits[byte & 0xFU];
  return way == Escapes::kJson ? Escaped{{'\\', 'u', '0', '0', high, low}, 6}
                               : Escaped{{'\\', 'x', high, low}, 4};
}

}  // namespace

std::size_t escapedSize(std::string_view text, Escapes way) {
  std::size_t size = 0;
  while (!text.empty()) {
    const std::size_t plain = plainBeginning(text, way);
    size += plain;
    text.remove_prefix(plain);
    if (!text.empty()) {
      size += escaped(byteOf(text, 0), way).size;
      text.remove_prefix(1);
    }
  }
  return size;
}

void escape(std::string_view text, Escapes way, char* to) {
  while (!text.empty()) {
    const std::size_t plain = plainBeginning(text, way);
    std::memmove(to, text.data(), plain);
    to += plain;
    text.remove_prefix(plain);
    if (!text.empty()) {
      const Escaped one = escaped(byteOf(text, 0), way);
      text.remove_prefix(1);
      std::memcpy(to, one.text.data(), one.size);
      to += one.size;
    }
  }
}

}  // namespace qov
