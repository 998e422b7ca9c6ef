#include <ace/Guard_T.h>
#include <ace/Log_Msg.h>
#include <qovpub/qov_common_debugkit.h>

#include <cerrno>
#include <memory>
#include <mutex>

#include "diag/kit_registry.h"
#include "diag/log_ids.h"

template class ACE_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>;
template class ACE_Unmanaged_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>;

namespace {

using qov::KitRegistry;
using qov::kPublicKit;

constexpr const char* kPublicName = "QOVPUBLIC";

using Registry = ACE_Unmanaged_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>;

/// Keeps ACE's pointer and KitRegistry::process in step, and one close() from another.
std::mutex creation;

/// Where to keep why a registry has no map. Null: nobody does, so it is logged at once.
thread_local int* mapError = nullptr;

class MapErrorKept {
 public:
  MapErrorKept() { mapError = &error_; }
  ~MapErrorKept() { mapError = nullptr; }
  MapErrorKept(const MapErrorKept&) = delete;
  MapErrorKept& operator=(const MapErrorKept&) = delete;

  int error() const { return error_; }

 private:
  int error_ = 0;
};

void tellNoMap(int error) {
  errno = error;
  ACE_ERROR((LM_ERROR, "%p\n", "ACE_Hash_Map_Manager_Ex open"));
}

CQOVDebugKitMgr* makeLockedProcessRegistry() {
  const std::lock_guard<std::mutex> lock(creation);
  CQOVDebugKitMgr* const registry = Registry::instance();
  KitRegistry::process.store(registry, std::memory_order_release);
  return registry;
}

/// Logs behind `creation`: a fork takes ACE's log lock before it.
CQOVDebugKitMgr* makeProcessRegistry() {
  const int callersErrno = errno;  // the first guard may be what makes the registry
  const MapErrorKept kept;
  CQOVDebugKitMgr* const registry = makeLockedProcessRegistry();
  if (kept.error() != 0) {
    tellNoMap(kept.error());
  }
  errno = callersErrno;
  return registry;
}

}  // namespace

CQOVDebugKitMgr::CQOVDebugKitMgr() : small_{} {
  if (kits_.open(kBuckets) == 0) {
    addPublicKit();
  } else if (mapError != nullptr) {
    *mapError = errno;
  } else {
    tellNoMap(errno);
  }
}

void CQOVDebugKitMgr::addPublicKit() {
  auto kit = std::make_unique<CQOVDebugKit>(kPublicName, kPublicKit);
  if (add(kit.get()) == 1) {
    static_cast<void>(kit.release());
  }
}

CQOVDebugKitMgr::~CQOVDebugKitMgr() {
  CQOVDebugKitMgr* self = this;
  KitRegistry::process.compare_exchange_strong(self, nullptr);
  for (auto& entry : kits_) {
    delete entry.item();
  }
  kits_.unbind_all();
  kits_.close();
}

CQOVDebugKitMgr* CQOVDebugKitMgr::instance() {
  CQOVDebugKitMgr* const known = KitRegistry::process.load(std::memory_order_acquire);
  return known != nullptr ? known : makeProcessRegistry();
}

void CQOVDebugKitMgr::close() {
  const std::lock_guard<std::mutex> lock(creation);
  if (CQOVDebugKitMgr* const registry = KitRegistry::process.load(std::memory_order_acquire)) {
    registry->empty();
  }
}

/// Leaves the registry as it was made. The public kit stays in place: threads that nobody has
/// joined, and that log through it, must not find it gone.
void CQOVDebugKitMgr::empty() {
  removeModulesKits();
  addPublicKit();  // for one that was removed; refused where it is still there
}

void CQOVDebugKitMgr::removeModulesKits() {
  ACE_GUARD(ACE_Thread_Mutex, guard, changes_);
  auto entry = kits_.begin();
  while (entry != kits_.end()) {
    CQOVDebugKit* const kit = (*entry).item();
    ++entry;
    if (kit->id() != kPublicKit || kit->name() != kPublicName) {
      publish(kit->id(), nullptr);
      kits_.unbind(kit->id());
      delete kit;
    }
  }
}

int CQOVDebugKitMgr::add(CQOVDebugKit* kit) {
  if (kit == nullptr || kits_.total_size() == 0) {
    return 0;
  }
  ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, changes_, 0);
  if (kits_.bind(kit->id(), kit) != 0) {
    return 0;
  }
  publish(kit->id(), kit);
  return 1;
}

CQOVDebugKit* CQOVDebugKitMgr::remove(unsigned int id) {
  ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, changes_, nullptr);
  CQOVDebugKit* kit = nullptr;
  if (kits_.unbind(id, kit) != 0) {
    return nullptr;
  }
  publish(id, nullptr);
  return kit;
}

CQOVDebugKit* CQOVDebugKitMgr::find(unsigned int id) {
  CQOVDebugKit* const kit =
      id < small_.size() ? small_[id].load(std::memory_order_acquire) : lookUp(id);
  return kit != nullptr ? kit : small_[kPublicKit].load(std::memory_order_acquire);
}

/// For the ids beyond small_.
CQOVDebugKit* CQOVDebugKitMgr::lookUp(unsigned int id) {
  const int callersErrno = errno;  // guards look up too, and ACE sets it for an unknown id
  CQOVDebugKit* kit = nullptr;
  if (kits_.find(id, kit) != 0) {
    kit = nullptr;
  }
  errno = callersErrno;
  return kit;
}

void CQOVDebugKitMgr::publish(unsigned int id, CQOVDebugKit* kit) {
  if (id < small_.size()) {
    small_[id].store(kit, std::memory_order_release);
  }
}

namespace qov {

std::atomic<CQOVDebugKitMgr*> KitRegistry::process{nullptr};

const CQOVDebugKit* KitRegistry::findRare(unsigned int id) {
  CQOVDebugKitMgr* const registry = CQOVDebugKitMgr::instance();
  return registry != nullptr ? registry->find(id) : nullptr;
}

void KitRegistry::acquireLocks() {
  creation.lock();
  if (CQOVDebugKitMgr* const registry = process.load(std::memory_order_acquire)) {
    registry->changes_.acquire();
    registry->kits_.mutex().acquire();
  }
}

void KitRegistry::releaseLocks() {
  if (CQOVDebugKitMgr* const registry = process.load(std::memory_order_acquire)) {
    registry->kits_.mutex().release();
    registry->changes_.release();
  }
  creation.unlock();
}

}  // namespace qov
