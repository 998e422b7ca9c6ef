#ifndef QOV_TASK_LEADER_QUEUE_H
#define QOV_TASK_LEADER_QUEUE_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "task/task_queue.h"

namespace qov {

/// The queue of a leader: decides who must wait when the module is full.
///
/// - Requests and asynchronous messages to the module itself need one of its workers: they find no
///   room while this queue and the queues behind the leader (ModuleLoad) hold a queue's worth of
///   bytes.
/// - Messages that the leader only passes on, and unknown ones, find no room while this queue alone
///   is full. The leader never waits, so that ends soon, whatever its workers do; otherwise workers
///   that wait to send and a backlog that waits for workers would block each other for good.
/// - Responses may fill the queue to twice its limit, since dropping one costs a worker its whole
///   time-out. Each belongs to a waiting worker, so there are never more of them than workers.
/// - Stop and hang-up blocks always get in.
class LeaderQueue : public TaskQueue {
 public:
  /// Messages with these addresses (low byte each) are the module's own.
  LeaderQueue(std::uint8_t processId, std::uint8_t moduleId);

  const std::shared_ptr<ModuleLoad>& load() const { return load_; }
  std::uint8_t processId() const { return processId_; }

  int enqueue_tail(ACE_Message_Block* mb, ACE_Time_Value* timeout = nullptr) override;

  /// Also releases the senders that wait for room; they fail.
  int deactivate() override;

  /// Takes what stands in the queue now, as takeAll() does, and lets senders look for room.
  ACE_Message_Block* takeBatch();

 private:
  enum class Kind { kControl, kResponse, kForOwnWorkers, kPassedOn };

  Kind kindOf(const ACE_Message_Block& mb) const;
  bool responsesFit();
  bool moduleHasRoom();
  bool waitForModule(const ACE_Time_Value* timeout);

  const std::uint8_t processId_;
  const std::uint8_t moduleId_;
  const std::shared_ptr<ModuleLoad> load_;
};

}  // namespace qov

#endif
