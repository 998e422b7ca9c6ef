#include <ace/Log_Msg.h>
#include <qovpub/qov_common_debugkit.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <new>

#include "diag/kit_registry.h"
#include "diag/kit_table.h"

template class ACE_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>;
template class ACE_Unmanaged_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>;

namespace {

using qov::KitRegistry;
using qov::KitTable;

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

/// Null without memory.
CQOVDebugKitMgr* makeLockedProcessRegistry() {
  const std::lock_guard<std::mutex> lock(creation);
  CQOVDebugKitMgr* registry = nullptr;
  try {
    registry = Registry::instance();
  } catch (const std::bad_alloc&) {
    // As where ACE itself finds none. A guard or a record goes on without a kit.
  }
  KitRegistry::process.store(registry != nullptr ? &KitTable::of(*registry) : nullptr,
                             std::memory_order_release);
  return registry;
}

/// The process's registry; null without memory for it.
CQOVDebugKitMgr* registryOrNull() {
  if (const KitTable* const known = KitRegistry::process.load(std::memory_order_acquire)) {
    return &known->registry();
  }
  // Logs behind `creation`: a fork takes ACE's log lock before it.
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

CQOVDebugKitMgr::CQOVDebugKitMgr() : table_(std::make_unique<KitTable>(*this)) {
  if (table_->open() == 0) {
    table_->addPublicKit();
  } else if (mapError != nullptr) {
    *mapError = errno;
  } else {
    tellNoMap(errno);
  }
}

CQOVDebugKitMgr::~CQOVDebugKitMgr() {
  KitTable* own = table_.get();
  KitRegistry::process.compare_exchange_strong(own, nullptr);
}

CQOVDebugKitMgr* CQOVDebugKitMgr::instance() {
  if (CQOVDebugKitMgr* const registry = registryOrNull()) {
    return registry;
  }
  throw std::bad_alloc();
}

void CQOVDebugKitMgr::close() {
  const std::lock_guard<std::mutex> lock(creation);
  if (KitTable* const table = KitRegistry::process.load(std::memory_order_acquire)) {
    table->empty();
  }
}

int CQOVDebugKitMgr::add(CQOVDebugKit* kit) {
  return table_->add(kit);
}

CQOVDebugKit* CQOVDebugKitMgr::remove(unsigned int id) {
  return table_->remove(id);
}

CQOVDebugKit* CQOVDebugKitMgr::find(unsigned int id) {
  return table_->find(id);
}

namespace qov {

std::atomic<KitTable*> KitRegistry::process{nullptr};

const CQOVDebugKit* KitRegistry::findRare(unsigned int id) {
  CQOVDebugKitMgr* const registry = registryOrNull();
  return registry != nullptr ? registry->find(id) : nullptr;
}

void KitRegistry::acquireLocks() {
  creation.lock();
  if (KitTable* const table = process.load(std::memory_order_acquire)) {
    table->acquireLocks();
  }
}

void KitRegistry::releaseLocks() {
  if (KitTable* const table = process.load(std::memory_order_acquire)) {
    table->releaseLocks();
  }
  creation.unlock();
}

}  // namespace qov
