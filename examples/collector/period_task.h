#ifndef QOV_EXAMPLES_COLLECTOR_PERIOD_TASK_H
#define QOV_EXAMPLES_COLLECTOR_PERIOD_TASK_H

#include <qovpub/qov_periodic_task.h>

namespace devagent {

/// Asks the module's own RoundTask for a round, at once and then in every period, and waits until
/// that is finished.
class PeriodTask : public QOVPeriodicTask {
 public:
  PeriodTask(CQOV_TaskMgr* module, Duration period);

  void tick() override;
};

}  // namespace devagent

#endif
