#ifndef QOV_MODULES_COMMON_CONTROLS_H
#define QOV_MODULES_COMMON_CONTROLS_H

#include <cstddef>
#include <string>
#include <string_view>

namespace qov::common {

// Texts from outside may hold control characters. With C0, DEL and C1 they could steer a terminal;
// with those that set the direction of writing (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to
// U+2069) a reader would see another text than there is.

/// A control character as it stands in UTF-8.
struct Control {
  std::size_t length;  ///< in bytes; 0 for none
  unsigned int code;
};

/// The control character at `at`.
Control controlAt(std::string_view text, std::size_t at);

/// The text with each byte of its control characters as "\x1b" is; if it is not UTF-8, each byte
/// beyond ASCII as well.
std::string withoutControls(std::string_view text);

/// The start of a text that may be long, for a complaint; whole characters.
std::string shortened(std::string_view text);

}  // namespace qov::common

#endif
