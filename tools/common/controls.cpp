#include "tools/common/controls.h"

#include <algorithm>

#include "tools/common/octets.h"

namespace qov::tools {
namespace {

unsigned char byteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

}  // namespace

std::size_t controlLength(std::string_view text, std::size_t at) {
  const unsigned char byte = byteAt(text, at);
  const unsigned char next = byteAt(text, at + 1);
  if (byte < 0x20 || byte == 0x7F) {
    return 1;
  }
  return byte == 0xC2 && next >= 0x80 && next < 0xA0 ? 2 : 0;
}

std::string withoutControls(std::string_view text) {
  const bool utf8 = isUtf8(text);
  std::string shown;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t control = controlLength(text, at);
    const bool hidden = control > 0 || (!utf8 && byteAt(text, at) >= 0x80);
    for (const std::size_t end = at + std::max<std::size_t>(control, 1); at < end; ++at) {
      shown += hidden ? "\\x" + hexText(text.substr(at, 1)) : std::string(1, text[at]);
    }
  }
  return shown;
}

}  // namespace qov::tools
