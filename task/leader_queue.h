#ifndef QOV_TASK_LEADER_QUEUE_H
#define QOV_TASK_LEADER_QUEUE_H

#include <cstdint>
#include <memory>

#include "task/task_queue.h"

class CQOV_Task;
class CQOV_TaskMgr;

namespace qov {

/// The queue of a leader: decides who must wait when the module is full.
///
/// - Requests and asynchronous messages to the module itself need one of its workers: they find no
///   room while the module's ledger (ModuleLoad) holds a queue's worth of bytes.
/// - What its workers, its scheduler and its leader send is exempt: if they waited for room that
///   only they can make, nothing would move again. A pool that sends itself more than it can handle
///   grows its module instead. Everybody else waits or is refused, the module's static tasks and
///   other threads included; a static task is spared only what stands in its own queue.
/// - Messages that the leader only passes on, and unknown ones, find no room while this queue alone
///   is full. The leader itself never waits, so that ends soon, whatever its workers do; otherwise
///   workers that wait to send and a backlog that waits for workers would block each other for
///   good.
/// - Responses may fill the queue to twice its limit: a dropped one costs a worker its whole
///   time-out. Each belongs to a waiting task, so there are never more of them than tasks.
/// - Stop and hang-up blocks always get in.
class LeaderQueue : public TaskQueue {
 public:
  /// The queue of the module of `mgr`, which is only compared with; messages with these addresses
  /// (low byte each) are its own.
  LeaderQueue(const CQOV_TaskMgr* mgr, std::uint8_t processId, std::uint8_t moduleId);

  const std::shared_ptr<ModuleLoad>& load() const { return load_; }
  std::uint8_t processId() const { return processId_; }

  int enqueue_tail(ACE_Message_Block* mb, ACE_Time_Value* timeout = nullptr) override;

  /// Also releases the senders that wait for room; they fail.
  int deactivate() override;

  /// Takes what stands in the queue now, as takeAll() does. It counts into the load of the module
  /// until doneWith() says that so many bytes of it have been passed on or dropped.
  ACE_Message_Block* takeBatch();
  void doneWith(std::size_t bytes) { load_->subtract(bytes); }

 protected:
  int wait_not_full_cond(ACE_Time_Value* timeout) override;

 private:
  enum class Kind { kControl, kResponse, kForOwnWorkers, kPassedOn };

  Kind kindOf(const ACE_Message_Block& mb) const;
  bool responseFits();
  int enqueueForOwnWorkers(ACE_Message_Block* mb, ACE_Time_Value* timeout);
  int refuse();
  /// The task of the calling thread if it is one of this module.
  const CQOV_Task* ownSender() const;

  const CQOV_TaskMgr* const mgr_;
  const std::uint8_t processId_;
  const std::uint8_t moduleId_;
  const std::shared_ptr<ModuleLoad> load_;
};

}  // namespace qov

#endif
