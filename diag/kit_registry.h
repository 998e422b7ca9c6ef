#ifndef QOV_DIAG_KIT_REGISTRY_H
#define QOV_DIAG_KIT_REGISTRY_H

#include <qovpub/qov_common_debugkit.h>

#include <atomic>

namespace qov {

/// What logging needs of the process's registry of kits beside its operations.
struct KitRegistry {
  /// What CQOVDebugKitMgr::instance()->find(id) answers; null also where there is no memory for the
  /// registry. Inlined, since each traced function looks its kit up.
  static const CQOVDebugKit* find(unsigned int id) {
    CQOVDebugKitMgr* const registry = process.load(std::memory_order_acquire);
    if (registry != nullptr && id < registry->small_.size()) {
      if (const CQOVDebugKit* const kit = registry->small_[id].load(std::memory_order_acquire)) {
        return kit;
      }
    }
    return findRare(id);
  }

  /// Its locks, for whoever must know that nobody holds them.
  static void acquireLocks();
  static void releaseLocks();

  /// The registry of instance(), once it is made. ACE's own double check reads its pointer without
  /// any ordering, so the pointer that threads go by is this one.
  static std::atomic<CQOVDebugKitMgr*> process;

 private:
  static const CQOVDebugKit* findRare(unsigned int id);
};

/// How many debug kits were deleted so far. While the number stands, a kit pointer stays good.
extern std::atomic<unsigned int> deletedKits;

}  // namespace qov

#endif
