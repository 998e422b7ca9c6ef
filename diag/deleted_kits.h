#ifndef QOV_DIAG_DELETED_KITS_H
#define QOV_DIAG_DELETED_KITS_H

#include <atomic>

namespace qov {

/// How many debug kits were deleted so far. While the number stands, a kit pointer stays good.
extern std::atomic<unsigned int> deletedKits;

}  // namespace qov

#endif
