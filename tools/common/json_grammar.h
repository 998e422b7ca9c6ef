#ifndef QOV_TOOLS_COMMON_JSON_GRAMMAR_H
#define QOV_TOOLS_COMMON_JSON_GRAMMAR_H

#include <cstddef>
#include <optional>
#include <string_view>

namespace qov::tools {

/// Something that JsonCpp reads although it is no JSON, often as another value than was meant.
struct LaxJson {
  std::size_t at;  ///< where in the text
  const char* why;
};

/// The first of it in `text`, which JsonCpp has read without a complaint: numbers such as "-", "01"
/// and "1.", control characters and halves of characters in a string, a byte order mark.
std::optional<LaxJson> findLaxJson(std::string_view text);

}  // namespace qov::tools

#endif
