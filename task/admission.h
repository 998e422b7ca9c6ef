#ifndef QOV_TASK_ADMISSION_H
#define QOV_TASK_ADMISSION_H

#include <ace/Message_Block.h>
#include <ace/Message_Queue.h>
#include <ace/Thread_Mutex.h>
#include <ace/Time_Value.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "task/module_counters.h"
#include "task/queue_load.h"

class CQOV_TaskMgr;

namespace qov {

class LeaderTurn;

/// Decides when a message gets into a module, and keeps the ledger of what waits there: the blocks
/// and bytes in the leader's queue, in the leader's hands, and in the queues of the scheduler and
/// the static tasks.
///
/// A message gets in while fewer bytes wait than the first row that fits says. A limit is 16 KiB.
///
///   message                        from                        leader's queue  module
///   stop, hang-up                  anybody                     -               -
///   any                            who does the leader's work  -               -
///   response                       anybody                     2 limits        -
///   to another module, or unknown  anybody                     1 limit         -
///   request or asynchronous,       the pool and the scheduler  1 limit         -
///   to the module itself           its other tasks             1 limit         1 limit, without
///                                                                              their own queue
///                                  anybody else                1 limit         1 limit
///
/// - Who does the leader's work (LeaderTurn) never waits for that.
/// - A dropped response costs a worker its whole time-out. Each belongs to a waiting task, so there
///   are never more of them than tasks.
/// - The leader never waits for its workers. So room in its queue comes soon, whatever they do.
/// - Pool and scheduler make the room in the module; if they waited for it, nothing would move. A
///   pool that sends itself more than it can handle grows its module instead.
/// - A static task makes the room in its own queue, and in no other.
///
/// A sender's own messages are meant: what it passes on in a leader's stead is anybody's.
///
/// Who finds no room stands in a line. Room goes to the first in the line for whom it is enough. So
/// a later sender gets in before an earlier one only where the table asks less of it.
///
/// Shared by the queues that count. Those of static tasks may outlive the leader's.
///
/// Thread: any.
class Admission {
 public:
  /// ACE's default for a single queue.
  static constexpr std::size_t kLimit = ACE_Message_Queue_Base::DEFAULT_HWM;

  /// For the module of `mgr`, which is only compared with; messages with these addresses (low byte
  /// each) are its own. `inQueue` counts what stands in the leader's queue, and is used while
  /// senders want to get in there.
  Admission(const CQOV_TaskMgr* mgr, std::uint8_t processId, std::uint8_t moduleId,
            std::atomic<QueueLoad>& inQueue);

  /// For the leader, before anybody is admitted: who has `turn` does its work.
  void ledBy(std::shared_ptr<LeaderTurn> turn) { turn_ = std::move(turn); }

  std::uint8_t processId() const { return processId_; }

  /// Waits until `mb` may enter the leader's queue, whose lock is held; while this waits, the lock
  /// is free. `timeout`, an absolute time of day, bounds the wait. False when there was no room in
  /// time (errno EWOULDBLOCK), or when the module has closed meanwhile (errno ESHUTDOWN).
  bool admit(const ACE_Message_Block& mb, const ACE_Time_Value* timeout, ACE_Thread_Mutex& lock);

  /// Where `before` was, `now` is. Lets in whoever has room by that.
  void book(QueueLoad before, QueueLoad now);

  /// Lets in whoever has room, after a change in the leader's queue alone.
  void lookAgain();

  /// Ends every wait.
  void close();

  /// How many bytes wait, and how many blocks, and the most of each that ever did.
  std::size_t booked() const { return bytesIn(booked_); }
  std::size_t bookedBlocks() const { return blocksIn(booked_); }
  std::uint64_t mostBooked() const { return mostBooked_.read(); }
  std::uint64_t mostBookedBlocks() const { return mostBookedBlocks_.read(); }

  /// Who waits, or has been let in and is on its way into the queue.
  int waitingSenders() const { return waiting_; }

 private:
  struct Need;
  class Place;

  Need needOf(const ACE_Message_Block& mb) const;
  /// Lets in those for whom there is room. With mutex_ held.
  void letIn();
  void add(QueueLoad more);

  // Constant after construction.
  const CQOV_TaskMgr* const mgr_;
  const std::uint8_t processId_;
  const std::uint8_t moduleId_;
  // Null for a queue that nobody leads.
  std::shared_ptr<LeaderTurn> turn_;

  std::atomic<QueueLoad> booked_{0};
  Counter mostBooked_;
  Counter mostBookedBlocks_;
  std::atomic<QueueLoad>& inQueue_;

  /// A sender counts itself before it looks for room: either it sees the room, or whoever makes
  /// room sees it.
  std::atomic<int> waiting_{0};

  std::mutex mutex_;
  // Guarded by mutex_.
  /// The line, linked through the places.
  Place* first_ = nullptr;
  /// The bytes of those who have been let in and are on their way.
  std::size_t promised_ = 0;
  bool closed_ = false;
};

}  // namespace qov

#endif
