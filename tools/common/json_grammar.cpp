#include "tools/common/json_grammar.h"

#include <algorithm>

#include "tools/common/octets.h"

namespace qov::tools {
namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

std::string_view withoutDigits(std::string_view text) {
  const auto* const end = std::find_if_not(text.begin(), text.end(), isDigit);
  return text.substr(static_cast<std::size_t>(end - text.begin()));
}

/// What follows the digits that `text` has to begin with; nothing when it has none.
std::optional<std::string_view> behindDigits(std::string_view text) {
  const std::string_view rest = withoutDigits(text);
  return rest.size() < text.size() ? std::optional(rest) : std::nullopt;
}

bool takeAny(std::string_view& text, std::string_view characters) {
  const bool taken = !text.empty() && characters.find(text.front()) != std::string_view::npos;
  text.remove_prefix(taken ? 1 : 0);
  return taken;
}

/// Whether all of `text` is a number.
bool isNumber(std::string_view text) {
  takeAny(text, "-");
  const bool zero = takeAny(text, "0");
  std::optional<std::string_view> rest = zero ? text : behindDigits(text);
  if (rest && takeAny(*rest, ".")) {
    rest = behindDigits(*rest);
  }
  if (rest && takeAny(*rest, "eE")) {
    takeAny(*rest, "+-");
    rest = behindDigits(*rest);
  }
  return rest && rest->empty();
}

/// Whether the character that `text` escapes with \u is the first, or the second, half of one.
bool isHalf(std::string_view text, bool second) {
  if (text.substr(0, 2) != "\\u" || text.size() < 6) {
    return false;
  }
  const auto bytes = bytesOfHex(text.substr(2, 4));
  const int high = bytes ? static_cast<unsigned char>((*bytes)[0]) : 0;
  return (high & 0xFC) == (second ? 0xDC : 0xD8);
}

/// Takes a string off the front of `text`, its quotes included; gives what is wrong with it, where
/// `text` then begins.
const char* takeString(std::string_view& text) {
  text.remove_prefix(1);
  while (!text.empty() && text.front() != '"') {
    if (static_cast<unsigned char>(text.front()) < 0x20) {
      return "a control character in a string";
    }
    const bool first = isHalf(text, false);
    if (isHalf(text, true) || (first && !isHalf(text.substr(6), true))) {
      return "half of a character in a string";
    }
    const std::size_t escape = first ? 12 : 2;
    text.remove_prefix(std::min(text.front() == '\\' ? escape : 1, text.size()));
  }
  text.remove_prefix(std::min<std::size_t>(1, text.size()));
  return nullptr;
}

/// The same of a number.
const char* takeNumber(std::string_view& text) {
  const std::size_t end = std::min(text.find_first_not_of("0123456789+-.eE"), text.size());
  if (!isNumber(text.substr(0, end))) {
    return "not a number";
  }
  text.remove_prefix(end);
  return nullptr;
}

const char* takeNext(std::string_view& text) {
  const char c = text.front();
  if (c == '"') {
    return takeString(text);
  }
  if (c == '-' || isDigit(c)) {
    return takeNumber(text);
  }
  text.remove_prefix(1);
  return nullptr;
}

}  // namespace

std::optional<LaxJson> findLaxJson(std::string_view text) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") {
    return LaxJson{0, "a byte order mark"};
  }
  for (std::string_view rest = text; !rest.empty();) {
    if (const char* const why = takeNext(rest)) {
      return LaxJson{text.size() - rest.size(), why};
    }
  }
  return std::nullopt;
}

}  // namespace qov::tools
