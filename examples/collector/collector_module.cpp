// The module `collector`: reads the machine's state from the inventory, again and again.
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_utility.h>

#include <memory>
#include <string>

#include "examples/collector/period_task.h"
#include "examples/collector/round_task.h"
#include "examples/collector/tally_worker.h"
#include "examples/common/messages.h"

namespace devagent {
namespace {

/// What must outlive the task manager's destructor, which joins the threads that use it: a base
/// class in front of the task manager is destroyed after it, a member of the module before.
struct OwnTasks {
  const std::shared_ptr<Collection> collection_ = std::make_shared<Collection>();
  std::unique_ptr<RoundTask> rounds_;
  std::unique_ptr<PeriodTask> period_;
};

class CollectorModule : private OwnTasks, public CQOV_TaskMgr {
 public:
  CollectorModule() : CQOV_TaskMgr(kCollector, kWorkers, "collector") {}

  CQOV_Task* createTask() override {
    return std::make_unique<TallyWorker>(this, collection_).release();
  }

  bool initEnv() override {
    rounds_ = std::make_unique<RoundTask>(this, collection_);
    period_ = std::make_unique<PeriodTask>(this, configuredPeriod());
    return insertStaticScheduledTask(rounds_.get()) == 0 && period_->start() == 0;
  }

 private:
  static constexpr unsigned int kWorkers = 2;

  /// Key "PeriodMs" of section "COLLECTOR" in the process configuration file; 1000 without it.
  static ACE_Time_Value configuredPeriod() {
    CQOV_Ini_Operator configuration;
    std::string milliseconds = "1000";
    if (configuration.open(nullptr) == 0) {
      configuration.getConfigItem("COLLECTOR", "PeriodMs", milliseconds);
    }
    ACE_Time_Value period;
    period.msec(static_cast<long>(StrToUint(milliseconds)));
    return period;
  }
};

}  // namespace
}  // namespace devagent

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return std::make_unique<devagent::CollectorModule>().release();
}
