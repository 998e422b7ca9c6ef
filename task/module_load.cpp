#include "task/module_load.h"

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

bool ModuleLoad::Waiter::wait(const std::optional<Clock::time_point>& deadline) {
  woken_.wait(deadline);
  const std::lock_guard<std::mutex> lock(load_.mutex_);
  return letIn_;
}

void ModuleLoad::Waiter::letIn() {
  load_.waiting_.fetch_add(bytes_);
  leave();
  letIn_ = true;
  woken_.ring();
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

bool ModuleLoad::hasRoom(std::size_t all, const TaskQueue* own) const {
  const std::size_t ownShare = own != nullptr ? own->countedBytes() : 0;
  return closed_ || all < kLimit + ownShare;
}

void ModuleLoad::letIn() {
  // Read once: room that comes up midway would go to whoever is looked at next, past those before.
  // Whoever makes it comes here next and starts again from the first.
  std::size_t all = waiting();
  for (Waiter* waiter = first_; waiter != nullptr;) {
    Waiter* const next = waiter->next_;
    if (hasRoom(all, waiter->own_)) {
      all += waiter->bytes_;
      waiter->letIn();
    }
    waiter = next;
  }
}

}  // namespace qov
