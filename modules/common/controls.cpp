#include "modules/common/controls.h"

#include <algorithm>

#include "modules/common/octets.h"

namespace qov::common {
namespace {

unsigned char byteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

bool setsDirection(unsigned int code) {
  return code == 0x61C || code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

Control controlAt(std::string_view text, std::size_t at) {
  const unsigned char byte = byteAt(text, at);
  if (byte >= 0x20 && byte < 0x7F) {
    return {0, 0};  // most of them
  }
  const unsigned char second = byteAt(text, at + 1);
  const unsigned char third = byteAt(text, at + 2);
  if (byte < 0x20 || byte == 0x7F) {
    return {1, byte};
  }
  if (byte == 0xC2 && second >= 0x80 && second < 0xA0) {
    return {2, second};
  }
  const bool two = (byte & 0xE0U) == 0xC0;
  const unsigned int code = two ? (byte & 0x1FU) << 6 | (second & 0x3FU)
                                : (byte & 0xFU) << 12 | (second & 0x3FU) << 6 | (third & 0x3FU);
  const bool whole =
      (second & 0xC0U) == 0x80 && (two || ((byte & 0xF0U) == 0xE0 && (third & 0xC0U) == 0x80));
  return whole && setsDirection(code) ? Control{two ? 2U : 3U, code} : Control{0, 0};
}

std::string withoutControls(std::string_view text) {
  const bool utf8 = isUtf8(text);
  std::string shown;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t control = controlAt(text, at).length;
    const bool hidden = control > 0 || (!utf8 && byteAt(text, at) >= 0x80);
    for (const std::size_t end = at + std::max<std::size_t>(control, 1); at < end; ++at) {
      shown += hidden ? "\\x" + hexText(text.substr(at, 1)) : std::string(1, text[at]);
    }
  }
  return shown;
}

std::string shortened(std::string_view text) {
  constexpr std::size_t kShown = 60;
  if (text.size() <= kShown) {
    return std::string(text);
  }
  std::size_t end = kShown;
  while (end > 0 && (byteAt(text, end) & 0xC0U) == 0x80) {
    --end;
  }
  return std::string(text.substr(0, end)) + "...";
}

}  // namespace qov::common
