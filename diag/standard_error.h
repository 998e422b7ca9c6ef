#ifndef QOV_DIAG_STANDARD_ERROR_H
#define QOV_DIAG_STANDARD_ERROR_H

#include <sys/uio.h>

namespace qov {

/// Writes the pieces to standard error. Goes on after interruptions, and waits a second for the
/// reader of one that does not block; any other failure ends it.
void writeStandardError(const iovec* pieces, int count);

}  // namespace qov

#endif
