#ifndef QOV_TOOLS_QOVCTL_NUMBERS_H
#define QOV_TOOLS_QOVCTL_NUMBERS_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace qov::ctl {

/// The number that all of `text` is, in decimal or, with "0x", hexadecimal digits; nothing when it
/// is none or above `max`.
std::optional<std::uint64_t> numberOf(std::string_view text, std::uint64_t max);

}  // namespace qov::ctl

#endif
