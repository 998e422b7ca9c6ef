#include "modules/mqtt/operation_list.h"

#include <charconv>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace qov::mqtt {
namespace {

/// Decimal, or hexadecimal behind "0x".
template <class Number>
Number numberOf(std::string_view text, const std::string& entry, const char* what) {
  constexpr std::string_view kHex = "0x";
  const bool isHex = text.substr(0, kHex.size()) == kHex;
  const std::string_view digits = isHex ? text.substr(kHex.size()) : text;
  Number number{};
  const char* const end = digits.data() + digits.size();
  const auto parsed = std::from_chars(digits.data(), end, number, isHex ? 16 : 10);
  if (parsed.ec != std::errc() || parsed.ptr != end) {
    throw std::invalid_argument("\"" + entry + "\": \"" + std::string(text) + "\" is no " + what +
                                ", 0 to " + std::to_string(std::numeric_limits<Number>::max()));
  }
  return number;
}

}  // namespace

OperationList::OperationList(const std::string& text) {
  std::istringstream entries(text);
  for (std::string entry; entries >> entry;) {
    add(entry);
  }
}

void OperationList::add(const std::string& entry) {
  const std::size_t colon = entry.find(':');
  if (colon == std::string::npos) {
    throw std::invalid_argument("\"" + entry + "\": not MODULE:CODE,CODE... or MODULE:*");
  }
  const auto module = numberOf<std::uint8_t>(entry.substr(0, colon), entry, "module");
  Operations& operations = modules_[module];
  std::string_view codes = std::string_view(entry).substr(colon + 1);
  if (codes == "*") {
    operations.all = true;
    return;
  }
  for (std::size_t comma = 0; comma != std::string_view::npos;) {
    comma = codes.find(',');
    operations.codes.insert(
        numberOf<std::uint64_t>(codes.substr(0, comma), entry, "operation code"));
    codes.remove_prefix(comma == std::string_view::npos ? codes.size() : comma + 1);
  }
}

bool OperationList::has(std::uint8_t module, std::uint64_t opc) const {
  const auto found = modules_.find(module);
  return found != modules_.end() && (found->second.all || found->second.codes.count(opc) != 0);
}

}  // namespace qov::mqtt
