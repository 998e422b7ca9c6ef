#include "diag/kit_table.h"

#include <ace/Guard_T.h>

#include <cerrno>
#include <memory>

#include "diag/log_ids.h"

namespace qov {

namespace {

constexpr const char* kPublicName = "QOVPUBLIC";

}  // namespace

KitTable::~KitTable() {
  if (!isOpen()) {
    return;
  }
  for (auto& entry : kits_) {
    delete entry.item();
  }
  kits_.unbind_all();
  kits_.close();
}

int KitTable::open() {
  return kits_.open(kBuckets);
}

int KitTable::add(CQOVDebugKit* kit) {
  if (kit == nullptr || !isOpen()) {
    return 0;
  }
  ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, changes_, 0);
  if (kits_.bind(kit->id(), kit) != 0) {
    return 0;
  }
  publish(kit->id(), kit);
  return 1;
}

CQOVDebugKit* KitTable::remove(unsigned int id) {
  ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, changes_, nullptr);
  CQOVDebugKit* kit = nullptr;
  if (kits_.unbind(id, kit) != 0) {
    return nullptr;
  }
  publish(id, nullptr);
  return kit;
}

CQOVDebugKit* KitTable::find(unsigned int id) {
  CQOVDebugKit* const kit = id < small_.size() ? findSmall(id) : findLarge(id);
  return kit != nullptr ? kit : findSmall(kPublicKit);
}

CQOVDebugKit* KitTable::findLarge(unsigned int id) {
  const int callersErrno = errno;  // guards look up too, and ACE sets it for an unknown id
  CQOVDebugKit* kit = nullptr;
  if (kits_.find(id, kit) != 0) {
    kit = nullptr;
  }
  errno = callersErrno;
  return kit;
}

void KitTable::empty() {
  if (!isOpen()) {
    return;
  }
  removeModulesKits();
  addPublicKit();  // for one that was removed; refused where it is still there
}

void KitTable::addPublicKit() {
  auto kit = std::make_unique<CQOVDebugKit>(kPublicName, kPublicKit);
  if (add(kit.get()) == 1) {
    static_cast<void>(kit.release());
  }
}

void KitTable::removeModulesKits() {
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

void KitTable::publish(unsigned int id, CQOVDebugKit* kit) {
  if (id < small_.size()) {
    small_[id].store(kit, std::memory_order_release);
  }
}

void KitTable::acquireLocks() {
  changes_.acquire();
  kits_.mutex().acquire();
}

void KitTable::releaseLocks() {
  kits_.mutex().release();
  changes_.release();
}

}  // namespace qov
