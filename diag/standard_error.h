#ifndef QOV_DIAG_STANDARD_ERROR_H
#define QOV_DIAG_STANDARD_ERROR_H

#include <string_view>

namespace qov {

/// Writes `text` to standard error. Goes on after interruptions, and waits a second for the reader
/// of one that does not block; any other failure ends it.
void writeStandardError(std::string_view text);

}  // namespace qov

#endif
