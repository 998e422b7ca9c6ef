#include "task/module_load.h"

#include "task/doorbell.h"
#include "task/task_queue.h"

namespace qov {

/// A place in the line. Made and destroyed with the mutex held, also when the thread is cancelled
/// while it waits.
class ModuleLoad::Waiter {
 public:
  Waiter(ModuleLoad& load, std::size_t bytes, const TaskQueue* own)
      : load_(load), bytes_(bytes), own_(own) {
    Waiter** end = &load_.first_;
    while (*end != nullptr) {
      end = &(*end)->next_;
    }
    *end = this;
    ++load_.waiters_;
  }

  ~Waiter() {
    if (!letIn_) {
      leave();
    } else if (!gone_) {
      load_.waiting_.fetch_sub(bytes_);
      load_.letIn();
    }
  }

  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  bool wait(std::unique_lock<std::mutex>& lock, const Clock::time_point* deadline) {
    const auto mayGo = [this] { return letIn_; };
    if (deadline != nullptr) {
      woken_.wait_until(lock, *deadline, mayGo);
    } else {
      woken_.wait(lock, mayGo);
    }
    gone_ = letIn_;
    return gone_;
  }

  /// The next one in the line, after this one was let in where it has room.
  Waiter* letInWhereRoom() {
    Waiter* const next = next_;
    if (load_.hasRoom(own_)) {
      load_.waiting_.fetch_add(bytes_);
      leave();
      letIn_ = true;
      woken_.notify_one();
    }
    return next;
  }

 private:
  void leave() {
    Waiter** place = &load_.first_;
    while (*place != this) {
      place = &(*place)->next_;
    }
    *place = next_;
    --load_.waiters_;
  }

  ModuleLoad& load_;
  const std::size_t bytes_;
  const TaskQueue* const own_;
  Waiter* next_ = nullptr;
  std::condition_variable woken_;
  /// Off the line, with its bytes counted.
  bool letIn_ = false;
  /// The bytes are the sender's to subtract.
  bool gone_ = false;
};

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

bool ModuleLoad::waitForRoom(std::size_t bytes, const Clock::time_point* deadline,
                             const TaskQueue* own) {
  ringCollected();
  std::unique_lock<std::mutex> lock(mutex_);
  Waiter self(*this, bytes, own);
  letIn();
  return self.wait(lock, deadline);
}

void ModuleLoad::letIn() {
  for (Waiter* next = first_; next != nullptr;) {
    next = next->letInWhereRoom();
  }
}

}  // namespace qov
