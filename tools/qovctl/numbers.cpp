#include "tools/qovctl/numbers.h"

#include <charconv>

namespace qov::ctl {

std::optional<std::uint64_t> numberOf(std::string_view text, std::uint64_t max) {
  const bool hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
  text.remove_prefix(hexadecimal ? 2 : 0);
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
  if (error != std::errc() || stop != end || number > max) {
    return std::nullopt;
  }
  return number;
}

}  // namespace qov::ctl
