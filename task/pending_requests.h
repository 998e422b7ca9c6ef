#ifndef QOV_TASK_PENDING_REQUESTS_H
#define QOV_TASK_PENDING_REQUESTS_H

#include <ace/Event_Handler.h>
#include <ace/Message_Block.h>
#include <ace/Reactor.h>
#include <qovpub/qov_leader_task.h>

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "task/module_counters.h"

namespace qov {

/// The requests of a module's tasks that wait for their responses: key, sender, time-out, timer.
/// The errno `cause` is what the sender finds when its wait is ended.
///
/// Thread: who has the leader's turn.
/// Owns:   the requests and their timers, which releaseAll() ends before this object goes. The
///         senders' tasks and the reactor are borrowed.
/// Errors: by result and errno; the constructor throws std::bad_alloc.
class PendingRequests {
 public:
  /// Timers run in `reactor` and call the handle_timeout() of `handler`, which hands its act to
  /// timeOut().
  PendingRequests(ACE_Reactor& reactor, ACE_Event_Handler& handler, ModuleCounters& counters);

  PendingRequests(const PendingRequests&) = delete;
  PendingRequests& operator=(const PendingRequests&) = delete;

  /// Remembers that `sender` waits for the response to `key`, and starts its timer unless its
  /// time-out is zero. False when `key` is pending already (errno EINVAL), or without memory
  /// (ENOMEM).
  bool add(const MsgKey& key, const TimeoutDesc& sender);

  /// Forgets `key` and its timer. Returns who waits for the response, which nobody does when `key`
  /// is not pending.
  TimeoutDesc take(const MsgKey& key);

  /// The request that a task waits for, and since when; by coarseNow().
  struct Wait {
    MsgKey key;
    ModuleCounters::Clock::time_point since;
  };
  /// What `task` waits for. Looks at all requests.
  std::optional<Wait> waitOf(const CQOV_Task& task) const;

  /// Ends the wait for `key`, whose request could not be passed on.
  void drop(const MsgKey& key, int cause);

  /// Ends the wait whose timer has fired with `act` (ETIMEDOUT).
  void timeOut(const void* act);

  /// Ends the waits for other processes than `processId` (ECONNABORTED). Needs no memory.
  void releaseOtherProcesses(std::uint8_t processId);

  /// Ends what askLater() waits for from the `ended` modules of process `processId`
  /// (ECONNABORTED). Tasks wait for their time-outs. Needs no memory.
  void releaseLater(std::uint8_t processId, const std::bitset<256>& ended);

  /// Ends every wait (ECONNABORTED). Needs no memory.
  void releaseAll();

  /// Ends the wait of a `sender` that is not pending.
  static void wake(const TimeoutDesc& sender, int cause);

  /// Ends the wait of the sender whose descriptor is chained behind `request`, if there is one.
  static void wakeSenderOf(ACE_Message_Block& request, int cause);

 private:
  struct Hash {
    std::size_t operator()(const MsgKey& key) const;
  };
  struct Request {
    MsgKey key_;
    TimeoutDesc sender_;
    ModuleCounters::Clock::time_point since_;
    Request* older_;
    Request* newer_ = nullptr;
  };
  /// Grows with its entries, which stay where they are: each is the act of its timer.
  using Requests = std::unordered_map<MsgKey, Request, Hash>;

  /// Forgets the request and its timer; returns who waits for it.
  TimeoutDesc remove(Requests::const_iterator request);
  /// Takes the request out of the order of age, and the map.
  void erase(Requests::const_iterator request);
  void tellCounters();
  template <class IsChosen>
  void releaseThose(IsChosen isChosen);

  ACE_Reactor& reactor_;
  ACE_Event_Handler& handler_;
  ModuleCounters& counters_;
  Requests requests_;
  // Null without any.
  Request* oldest_ = nullptr;
  Request* newest_ = nullptr;
};

}  // namespace qov

#endif
