#include "task/module_load.h"

#include "task/doorbell.h"
#include "task/task_queue.h"

namespace qov {

ModuleLoad::Waiter::Waiter(ModuleLoad& load, std::size_t bytes, const TaskQueue* own)
    : load_(load), bytes_(bytes), own_(own) {
  const std::lock_guard<std::mutex> lock(load_.mutex_);
  Waiter** end = &load_.first_;
  while (*end != nullptr) {
    end = &(*end)->next_;
  }
  *end = this;
  ++load_.waiters_;
  load_.letIn();
}

ModuleLoad::Waiter::~Waiter() {
  const std::lock_guard<std::mutex> lock(load_.mutex_);
  if (letIn_) {
    load_.waiting_.fetch_sub(bytes_);
    load_.letIn();
  } else {
    leave();
  }
}

bool ModuleLoad::Waiter::wait(const Clock::time_point* deadline) {
  ringCollected();
  std::unique_lock<std::mutex> lock(load_.mutex_);
  const auto mayGo = [this] { return letIn_; };
  if (deadline != nullptr) {
    woken_.wait_until(lock, *deadline, mayGo);
  } else {
    woken_.wait(lock, mayGo);
  }
  return letIn_;
}

ModuleLoad::Waiter* ModuleLoad::Waiter::letInWhereRoom() {
  Waiter* const next = next_;
  if (load_.hasRoom(own_)) {
    load_.waiting_.fetch_add(bytes_);
    leave();
    letIn_ = true;
    woken_.notify_one();
  }
  return next;
}

void ModuleLoad::Waiter::leave() {
  Waiter** place = &load_.first_;
  while (*place != this) {
    place = &(*place)->next_;
  }
  *place = next_;
  --load_.waiters_;
}

void ModuleLoad::subtract(std::size_t bytes) {
  waiting_.fetch_sub(bytes);
  if (waitingSenders() > 0) {
    const std::lock_guard<std::mutex> lock(mutex_);
    letIn();
  }
}

void ModuleLoad::close() {
  const std::lock_guard<std::mutex> lock(mutex_);
  closed_ = true;
  letIn();
}

bool ModuleLoad::hasRoom(const TaskQueue* own) const {
  // The ledger is read first, and the own share changes first: the rest may look smaller than it is
  // for a moment, but never larger, which nobody would correct.
  const std::size_t all = waiting();
  const std::size_t ownShare = own != nullptr ? own->countedBytes() : 0;
  return closed_ || all < kLimit + ownShare;
}

void ModuleLoad::letIn() {
  for (Waiter* next = first_; next != nullptr;) {
    next = next->letInWhereRoom();
  }
}

}  // namespace qov
