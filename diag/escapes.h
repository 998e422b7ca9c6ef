#ifndef QOV_DIAG_ESCAPES_H
#define QOV_DIAG_ESCAPES_H

#include <cstddef>
#include <string_view>

namespace qov {

/// How the characters are written that a line cannot have as they are. Each way can be undone.
///
/// | | kLine | kJson |
/// |---|---|---|
/// | newline, carriage return, backslash | `\n` `\r` `\\` | the same |
/// | double quote | as it is | `\"` |
/// | other control characters | `\xNN`, also 7F | `\u00NN` |
/// | a byte that is no UTF-8 | as it is | `\u00NN` |
///
/// NN are two lower-case hexadecimal digits. JSON has valid characters from 80 on as they are, so
/// there `\u0080` to `\u00ff` always stand for a byte.
enum class Escapes { kLine, kJson };

/// How many bytes `text` takes then; as many as it has when nothing needs an escape.
std::size_t escapedSize(std::string_view text, Escapes way);

/// Writes `text` to `to`, escapedSize() bytes. They may overlap where both have the same end.
void escape(std::string_view text, Escapes way, char* to);

}  // namespace qov

#endif
