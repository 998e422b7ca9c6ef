#ifndef QOV_DIAG_STANDARD_ERROR_H
#define QOV_DIAG_STANDARD_ERROR_H

#include <string_view>

namespace qov {

/// Writes `text` to standard error, going on after interruptions; any other failure ends it.
void writeStandardError(std::string_view text);

}  // namespace qov

#endif
