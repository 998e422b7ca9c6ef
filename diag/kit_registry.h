#ifndef QOV_DIAG_KIT_REGISTRY_H
#define QOV_DIAG_KIT_REGISTRY_H

#include <atomic>

#include "diag/kit_table.h"

namespace qov {

/// What logging needs of the process's registry of kits beside its operations.
struct KitRegistry {
  /// What CQOVDebugKitMgr::instance()->find(id) answers; null also where there is no memory for the
  /// registry. Inlined, since each traced function looks its kit up.
  static const CQOVDebugKit* find(unsigned int id) {
    if (const KitTable* const table = process.load(std::memory_order_acquire)) {
      if (const CQOVDebugKit* const kit = table->findSmall(id)) {
        return kit;
      }
    }
    return findRare(id);
  }

  /// Its locks, for whoever must know that nobody holds them.
  static void acquireLocks();
  static void releaseLocks();

  /// The table of instance(), once that is made. ACE's own double check reads its pointer without
  /// any ordering, so the pointer that threads go by is this one.
  static std::atomic<KitTable*> process;

 private:
  static const CQOVDebugKit* findRare(unsigned int id);
};

/// How many debug kits were deleted so far. While the number stands, a kit pointer stays good.
extern std::atomic<unsigned int> deletedKits;

}  // namespace qov

#endif
