#ifndef QOV_DIAG_KIT_LOCKS_H
#define QOV_DIAG_KIT_LOCKS_H

namespace qov {

/// The locks of the process's registry of kits, for whoever must know that nobody holds them.
struct KitLocks {
  static void acquire();
  static void release();
};

}  // namespace qov

#endif
