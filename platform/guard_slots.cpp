#include "platform/guard_slots.h"

#include <unistd.h>

#include <new>

namespace qov::platform {

void GuardSlot::open(std::int64_t deadline, const Handling& handling) {
  kind_.store(handling.kind, std::memory_order_relaxed);
  level_.store(handling.level, std::memory_order_relaxed);
  seconds_.store(handling.seconds, std::memory_order_relaxed);
  log_.store(handling.log, std::memory_order_relaxed);
  deadline_.store(deadline, std::memory_order_release);
}

bool GuardSlot::close() {
  return deadline_.exchange(kFree, std::memory_order_acq_rel) == kClaimed;
}

std::int64_t GuardSlot::deadline() const {
  const std::int64_t deadline = deadline_.load(std::memory_order_acquire);
  return deadline > 0 ? deadline : 0;
}

bool GuardSlot::claim(std::int64_t deadline, Handling& overdue) {
  // Read before claiming: from then on the guard's thread may close the slot and open it anew.
  overdue = {kind_.load(std::memory_order_relaxed), level_.load(std::memory_order_relaxed),
             seconds_.load(std::memory_order_relaxed), log_.load(std::memory_order_relaxed)};
  return deadline_.compare_exchange_strong(deadline, kClaimed, std::memory_order_acq_rel);
}

namespace {
std::atomic<ThreadSlots*> firstSlots{nullptr};
}  // namespace

/// Holds a thread's slots from its first guard until the thread ends.
class SlotsLease {
 public:
  explicit SlotsLease(ThreadSlots*& slots) : slots_(slots) { slots_ = ThreadSlots::take(); }
  ~SlotsLease() {
    if (slots_ != nullptr) {
      slots_->giveBack();
    }
    slots_ = nullptr;
  }
  SlotsLease(const SlotsLease&) = delete;
  SlotsLease& operator=(const SlotsLease&) = delete;

 private:
  ThreadSlots*& slots_;
};

ThreadSlots* ThreadSlots::mine() {
  // Plain values, which outlive the lease: a guard that opens while the thread's other objects are
  // destroyed must not use slots that may be another thread's by then.
  [[gnu::tls_model("initial-exec")]] static thread_local bool asked = false;
  [[gnu::tls_model("initial-exec")]] static thread_local ThreadSlots* slots = nullptr;
  if (!asked) {
    asked = true;
    static thread_local const SlotsLease lease(slots);
  }
  return slots;
}

ThreadSlots* ThreadSlots::first() {
  return firstSlots.load(std::memory_order_acquire);
}

ThreadSlots* ThreadSlots::take() {
  for (ThreadSlots* used = first(); used != nullptr; used = used->next_) {
    bool taken = false;
    if (used->taken_.compare_exchange_strong(taken, true, std::memory_order_acq_rel)) {
      used->threadId_.store(gettid(), std::memory_order_relaxed);
      return used;
    }
  }
  auto* fresh = new (std::nothrow) ThreadSlots;
  if (fresh != nullptr) {
    fresh->threadId_.store(gettid(), std::memory_order_relaxed);
    fresh->next_ = firstSlots.load(std::memory_order_relaxed);
    while (!firstSlots.compare_exchange_weak(fresh->next_, fresh, std::memory_order_acq_rel)) {
    }
  }
  return fresh;
}

void ThreadSlots::giveBack() {
  taken_.store(false, std::memory_order_release);
}

void ThreadSlots::keepOnlyMine() {
  ThreadSlots* kept = first() == nullptr ? nullptr : mine();
  for (ThreadSlots* slots = first(); slots != nullptr; slots = slots->next_) {
    if (slots == kept) {
      slots->threadId_.store(gettid(), std::memory_order_relaxed);
      continue;
    }
    for (GuardSlot& slot : slots->slots_) {
      slot.reset();
    }
    slots->taken_.store(false, std::memory_order_release);
  }
}

GuardSlot* ThreadSlots::freeSlot() {
  for (GuardSlot& slot : slots_) {
    if (slot.isFree()) {
      return &slot;
    }
  }
  return nullptr;
}

}  // namespace qov::platform
