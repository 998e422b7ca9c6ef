#ifndef QOV_EXAMPLES_COLLECTOR_PERIOD_TASK_H
#define QOV_EXAMPLES_COLLECTOR_PERIOD_TASK_H

#include <ace/Time_Value.h>
#include <qovpub/qov_task.h>

namespace devagent {

/// A thread that asks the module's own RoundTask for a round, waits until that is finished, and
/// begins again one period later.
///
/// The wait between two rounds is a wait on the task's own queue, so that the block with which the
/// module tells its tasks to end ends it at once.
class PeriodTask : public CQOV_Task {
 public:
  PeriodTask(CQOV_TaskMgr* module, const ACE_Time_Value& period);

  /// Starts the thread among those of the module, which stops and joins it. 0 or -1.
  int start();

  int svc() override;

 private:
  void runRound();
  bool toldToEnd();

  const ACE_Time_Value period_;
};

}  // namespace devagent

#endif
