#ifndef QOV_DIAG_KIT_TABLE_H
#define QOV_DIAG_KIT_TABLE_H

#include <ace/Functor.h>
#include <ace/Hash_Map_Manager_T.h>
#include <ace/Thread_Mutex.h>
#include <qovpub/qov_common_debugkit.h>

#include <array>
#include <atomic>

namespace qov {

/// The kits of one registry by their ids.
///
/// Thread: any; the destructor only when no other thread logs.
/// Owns:   the kits in it.
/// Errors: as the registry.
class KitTable {
 public:
  static KitTable& of(const CQOVDebugKitMgr& registry) { return *registry.table_; }

  explicit KitTable(CQOVDebugKitMgr& registry) : registry_(registry) {}
  ~KitTable();
  KitTable(const KitTable&) = delete;
  KitTable& operator=(const KitTable&) = delete;

  /// Before anything else. 0, or -1 with errno without memory: the table stays empty then.
  int open();

  CQOVDebugKitMgr& registry() const { return registry_; }

  // As the registry's.
  int add(CQOVDebugKit* kit);
  CQOVDebugKit* remove(unsigned int id);
  CQOVDebugKit* find(unsigned int id);

  /// The kit of `id` if that is below 256, else null. Without a lock: each traced function looks
  /// its kit up.
  CQOVDebugKit* findSmall(unsigned int id) const {
    return id < small_.size() ? small_[id].load(std::memory_order_acquire) : nullptr;
  }

  /// Leaves the table as a registry is made, but with the same public kit: threads that nobody has
  /// joined, and that log through it, must not find it gone.
  void empty();
  void addPublicKit();

  // For whoever must know that nobody holds the table's locks.
  void acquireLocks();
  void releaseLocks();

 private:
  using Map = ACE_Hash_Map_Manager_Ex<unsigned int, CQOVDebugKit*, ACE_Hash<unsigned int>,
                                      ACE_Equal_To<unsigned int>, ACE_Thread_Mutex>;
  static constexpr unsigned int kBuckets = 256;

  /// Whether the map has its table. ACE aborts where one without is walked through.
  bool isOpen() const { return kits_.total_size() > 0; }
  void removeModulesKits();
  CQOVDebugKit* findLarge(unsigned int id);
  void publish(unsigned int id, CQOVDebugKit* kit);

  CQOVDebugKitMgr& registry_;
  ACE_Thread_Mutex changes_;  ///< keeps kits_ and small_ in step
  Map kits_;
  /// Copy of the map's entries below 256.
  std::array<std::atomic<CQOVDebugKit*>, kBuckets> small_{};
};

}  // namespace qov

#endif
