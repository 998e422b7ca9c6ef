#include "examples/collector/period_task.h"

#include <ace/OS_NS_sys_time.h>
#include <qovpub/qov_task_mgr.h>

#include "examples/common/messages.h"

namespace devagent {

PeriodTask::PeriodTask(CQOV_TaskMgr* module, const ACE_Time_Value& period)
    : CQOV_Task(module), period_(period) {}

int PeriodTask::start() {
  return activate(THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, 1, 0, ACE_DEFAULT_THREAD_PRIORITY,
                  taskMgr()->gid());
}

int PeriodTask::svc() {
  do {
    runRound();
  } while (!toldToEnd());
  return 0;
}

void PeriodTask::runRound() {
  static_cast<void>(QOVRequest(*this, kCollector, kRunRound).ask());
}

bool PeriodTask::toldToEnd() {
  ACE_Time_Value next = ACE_OS::gettimeofday() + period_;
  ACE_Message_Block* block = nullptr;
  if (getq(block, &next) == -1) {
    return false;
  }
  const bool stop = block->msg_type() == ACE_Message_Block::MB_STOP;
  block->release();
  return stop;
}

}  // namespace devagent
