#ifndef QOV_TOOLS_COMMON_CONTROLS_H
#define QOV_TOOLS_COMMON_CONTROLS_H

#include <cstddef>
#include <string>
#include <string_view>

namespace qov::tools {

// Texts from outside may hold control characters, with which they could steer a terminal: C0, DEL
// and, as UTF-8 has them in two bytes, C1.

/// Bytes of the control character at `at`, or 0 when there is none.
std::size_t controlLength(std::string_view text, std::size_t at);

/// The text with each byte of its control characters as "\x1b" is; if it is not UTF-8, each byte
/// beyond ASCII as well.
std::string withoutControls(std::string_view text);

}  // namespace qov::tools

#endif
