#ifndef QOV_TASK_HANDLER_WATCH_H
#define QOV_TASK_HANDLER_WATCH_H

#include <ace/Event_Handler.h>
#include <ace/Reactor.h>

#include "task/running_handlers.h"

namespace qov {

class PendingRequests;

/// Tells in the log of the handlers of a module that outlast the module's limit, while they run.
/// Looks when the next one may do so, by a timer of the leader: no thread of its own, and a handler
/// that hangs does not keep it from looking. Where none runs there is no timer: the leader of a
/// module that has nothing to do sleeps.
///
/// Thread: who has the leader's turn; constructor and destructor while nobody has.
/// Owns:   its timer. All else is borrowed.
/// Errors: throws std::bad_alloc without memory for its timer or its record.
class HandlerWatch final : public ACE_Event_Handler {
 public:
  HandlerWatch(unsigned int moduleId, ACE_Reactor& reactor, RunningHandlers& handlers,
               const PendingRequests& pending);
  ~HandlerWatch() override;

  /// Begins, goes on or ends as the limit says, if that has changed or the first handler has begun.
  void follow();

  int handle_timeout(const ACE_Time_Value& now, const void* act) override;

 private:
  void stop();
  void look();
  void tell(const RunningHandler& handler, RunningHandlers::Clock::time_point now) const;

  // Constant after construction.
  const unsigned int moduleId_;
  ACE_Reactor& reactor_;
  RunningHandlers& handlers_;
  const PendingRequests& pending_;

  long timerId_ = -1;
};

}  // namespace qov

#endif
