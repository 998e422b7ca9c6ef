#ifndef QOV_TASK_LEADER_QUEUE_H
#define QOV_TASK_LEADER_QUEUE_H

#include <cstdint>
#include <memory>

#include "task/task_queue.h"

class CQOV_TaskMgr;

namespace qov {

/// The queue of a leader: blocks get in as the Admission of the module says, and out in batches.
class LeaderQueue : public TaskQueue {
 public:
  /// The queue of the module of `mgr`: see Admission.
  LeaderQueue(const CQOV_TaskMgr* mgr, std::uint8_t processId, std::uint8_t moduleId);

  const std::shared_ptr<Admission>& admission() const { return admission_; }
  std::uint8_t processId() const { return admission_->processId(); }

  /// Takes what stands in the queue now, as takeAll() does. It stays in the ledger of the module
  /// until doneWith() says of each block of it that it has been passed on or dropped.
  ACE_Message_Block* takeBatch();

  /// What takeMessages() has taken.
  struct Messages {
    ACE_Message_Block* first;  ///< as takeBatch() gives them
    std::size_t count;
    bool isAll;  ///< nothing else stands in the queue
  };

  /// As takeBatch(), but up to `most` messages (MB_DATA), and none behind another block.
  Messages takeMessages(std::size_t most);

  /// Of a block of so many bytes.
  void doneWith(std::size_t bytes) { admission_->book(queueLoad(1, bytes), 0); }

 protected:
  bool waitForRoom(const ACE_Message_Block& mb, ACE_Time_Value* timeout) override;
  /// Also releases the senders that wait for room; they fail.
  int deactivate_i(int pulse) override;
};

}  // namespace qov

#endif
