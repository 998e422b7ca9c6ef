#include "examples/collector/period_task.h"

#include "examples/common/messages.h"

namespace devagent {

PeriodTask::PeriodTask(CQOV_TaskMgr* module, Duration period) : QOVPeriodicTask(module) {
  every(period, Duration::zero());
}

void PeriodTask::tick() {
  static_cast<void>(QOVRequest(*this, kCollector, kRunRound).ask());
}

}  // namespace devagent
