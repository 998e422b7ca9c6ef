#ifndef QOV_TASK_MODULE_LOAD_H
#define QOV_TASK_MODULE_LOAD_H

#include <ace/Message_Queue.h>

#include <atomic>
#include <cstddef>
#include <mutex>
#include <optional>

#include "task/doorbell.h"

namespace qov {

class TaskQueue;

/// The ledger of one module: how many bytes of blocks wait for its leader, in the leader's hands
/// and in the queues of its scheduler and its static tasks. Senders wait here for room, in a line:
/// who came first is let in first, and only as many are woken as there is room for.
///
/// A sender whose own queue counts into the ledger does not wait for what stands in there, since
/// only it can work that off. So a later sender may have room where an earlier one has none.
///
/// Shared by these queues; static tasks' queues may outlive the leader.
///
/// Thread: any.
class ModuleLoad {
 public:
  using Clock = Doorbell::Clock;

  /// From so many bytes on there is no room: ACE's default for a single queue.
  static constexpr std::size_t kLimit = ACE_Message_Queue_Base::DEFAULT_HWM;

  void add(std::size_t bytes) { waiting_.fetch_add(bytes); }

  /// Also lets in whoever waits for the room. Costs one load more while nobody does.
  void subtract(std::size_t bytes);

  /// Lets everybody in from now on, to be refused by a queue that is closed.
  void close();

  /// Whether a sender with the queue `own` (null: none) has room now.
  bool hasRoom(const TaskQueue* own) const { return hasRoom(waiting(), own); }

  std::size_t waiting() const { return waiting_.load(); }

  /// Length of the line.
  int waitingSenders() const { return waiters_.load(); }

  class Waiter;

 private:
  /// `all`: what waited, read before. A queue changes its own share before the ledger, so for a
  /// moment what the others have may look smaller than it is when the queue is filled, and larger
  /// when it is drained. The latter does no harm: subtract() walks the line right afterwards.
  bool hasRoom(std::size_t all, const TaskQueue* own) const;
  /// Lets in those for whom there is room. With mutex_ held.
  void letIn();

  std::atomic<std::size_t> waiting_{0};
  std::atomic<bool> closed_{false};
  /// Length of the line. A sender counts itself before it looks for room: either it sees the room,
  /// or whoever makes room sees it.
  std::atomic<int> waiters_{0};

  std::mutex mutex_;
  // Guarded by mutex_: the line, linked through the waiters.
  Waiter* first_ = nullptr;
};

/// A sender's place in the line, and then its room: once it is let in its bytes count. They are
/// taken off at the end of this object, when its block is in a queue and counts there. A thread
/// that is cancelled meanwhile leaves the line and gives its room back.
class ModuleLoad::Waiter {
 public:
  /// A sender of `bytes` with the queue `own` (null: none).
  Waiter(ModuleLoad& load, std::size_t bytes, const TaskQueue* own);
  ~Waiter();

  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  /// Waits until there is room, or until `deadline`, if there is one. True when let in.
  bool wait(const std::optional<Clock::time_point>& deadline);

 private:
  friend class ModuleLoad;

  /// Both with the mutex held.
  void letIn();
  void leave();

  ModuleLoad& load_;
  const std::size_t bytes_;
  const TaskQueue* const own_;
  Doorbell woken_;
  // Guarded by the mutex of the load.
  Waiter* next_ = nullptr;
  /// Off the line, with its bytes counted.
  bool letIn_ = false;
};

}  // namespace qov

#endif
