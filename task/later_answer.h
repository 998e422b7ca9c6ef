#ifndef QOV_TASK_LATER_ANSWER_H
#define QOV_TASK_LATER_ANSWER_H

#include <ace/Message_Block.h>
#include <ace/Time_Value.h>
#include <qovpub/detail/later_ptr.h>
#include <qovpub/qov_message_package.h>
#include <qovpub/qov_request.h>

#include <memory>

#include "task/message_block.h"
#include "task/waiting_requests.h"

class CQOV_Task;
class CQOV_TaskScheduler;

namespace qov {

class ModuleCounters;

/// The continuation of an askLater(), and what it is to be called with once that is known.
///
/// A package, with the type of a response: from end() on it takes the way of a message to the pool.
/// The worker that gets it runs it; wherever it is dropped it is freed as any package. Its block is
/// made with it, so that its way needs no memory.
///
/// It has one owner at a time: the request's TimeoutDesc (in the leader's queue, then among the
/// PendingRequests), then its block. So it runs at most once, whoever comes first.
///
/// Thread: one at a time.
/// Owns:   the continuation, the answer, and its block until end(). Scheduler and counters are
///         borrowed from the module.
class LaterAnswer final : public CQOV_MsgPackage {
 public:
  /// Sends `request`, which is valid, for `sender`: see QOVRequest::askLater().
  static QOVReason ask(CQOV_Task& sender, std::unique_ptr<CQOV_MsgPackage> request,
                       const ACE_Time_Value& timeout, QOVRequest::Continuation continuation);

  /// Counts it as no longer pending if it has not run.
  ~LaterAnswer() override;

  LaterAnswer(const LaterAnswer&) = delete;
  LaterAnswer& operator=(const LaterAnswer&) = delete;

  /// Hands this object over to the pool. For who has the leader's turn.
  void end(QOVAnswer answer);
  /// The same with the response that `block` carries, which is freed.
  void end(ACE_Message_Block* block);

  /// Runs the continuation if `pkg` is one, on the thread of `task`; what it throws is logged.
  /// False for any other package.
  static bool run(CQOV_MsgPackage& pkg, const CQOV_Task& task);

  /// Runs the continuation with `answer`; what it throws comes through.
  void call(QOVAnswer answer, const CQOV_Task& task);

 private:
  LaterAnswer(ModuleCounters& counters, CQOV_TaskScheduler& scheduler, const QOVMsgHead& request,
              QOVRequest::Continuation continuation);

  void runHere(const CQOV_Task& task);
  void noLongerPending();

  ModuleCounters& counters_;
  CQOV_TaskScheduler& scheduler_;
  QOVRequest::Continuation continuation_;
  QOVAnswer answer_{QOVReason::kStopped};
  BlockPtr block_;
  /// While the answer is not there; null if nobody wants to know.
  std::unique_ptr<WaitingRequests::Entry> noted_;
  bool pending_ = true;
};

}  // namespace qov

#endif
