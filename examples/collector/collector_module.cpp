// The module `collector`: reads the machine's state from the inventory, again and again.
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_utility.h>

#include <chrono>
#include <memory>
#include <string>

#include "examples/collector/period_task.h"
#include "examples/collector/round_task.h"
#include "examples/collector/tally_worker.h"
#include "examples/common/messages.h"

namespace devagent {
namespace {

class CollectorModule : public CQOV_TaskMgr {
 public:
  CollectorModule()
      : CQOV_TaskMgr(kCollector, kWorkers, "collector"),
        rounds_(this, collection_),
        period_(this, configuredPeriod()) {}

  CQOV_Task* createTask() override {
    return std::make_unique<TallyWorker>(this, collection_).release();
  }

  bool initEnv() override {
    return insertStaticScheduledTask(&rounds_) == 0 && insertStaticScheduledTask(&period_) == 0;
  }

 private:
  static constexpr unsigned int kWorkers = 2;

  /// Key "PeriodMs" of section "COLLECTOR" in the process configuration file; 1000 without it.
  static std::chrono::milliseconds configuredPeriod() {
    CQOV_Ini_Operator configuration;
    std::string milliseconds = "1000";
    if (configuration.open(nullptr) == 0) {
      configuration.getConfigItem("COLLECTOR", "PeriodMs", milliseconds);
    }
    return std::chrono::milliseconds(StrToUint(milliseconds));
  }

  // Used by the module's threads, which have ended when these are destroyed.
  Collection collection_;
  RoundTask rounds_;
  PeriodTask period_;
};

}  // namespace
}  // namespace devagent

QOV_MODULE(devagent::CollectorModule)
