#include "tools/qovctl/hex_text.h"

#include <algorithm>

#include "modules/common/octets.h"
#include "tools/qovctl/failure.h"

namespace qov::ctl {
namespace {

constexpr std::string_view kSeparators = " \t\r\v\f:";

std::string_view withoutComment(std::string_view line) {
  return line.substr(0, line.find('#'));
}

/// Takes the next group off the front of `line`; empty at its end.
std::string_view nextGroup(std::string_view& line) {
  const std::size_t begin = line.find_first_not_of(kSeparators);
  if (begin == std::string_view::npos) {
    return {};
  }
  line.remove_prefix(begin);
  const std::string_view group = line.substr(0, line.find_first_of(kSeparators));
  line.remove_prefix(group.size());
  return group;
}

std::string bytesOfGroup(std::string_view group, unsigned long line) {
  const bool prefixed = group.size() > 2 && group[0] == '0' && (group[1] == 'x' || group[1] == 'X');
  const auto bytes = common::bytesOfHex(prefixed ? group.substr(2) : group);
  if (!bytes) {
    throw Failure(kBadData, "hexadecimal text, line " + std::to_string(line) + ": \"" +
                                shortened(group) + "\" is not pairs of hexadecimal digits");
  }
  return *bytes;
}

}  // namespace

std::string bytesOfHexText(std::string_view text) {
  std::string bytes;
  for (unsigned long number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = withoutComment(text.substr(0, end));
    for (std::string_view group = nextGroup(line); !group.empty(); group = nextGroup(line)) {
      bytes += bytesOfGroup(group, number);
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return bytes;
}

}  // namespace qov::ctl
