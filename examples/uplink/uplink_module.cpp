// The module `uplink`: connects the agent to the management endpoint.
#include <qovpub/qov_exception.h>
#include <qovpub/qov_log.h>
#include <qovpub/qov_module.h>

#include "examples/common/messages.h"
#include "examples/uplink/plan.h"
#include "examples/uplink/uplink_task.h"

namespace devagent {
namespace {

class UplinkModule : public CQOV_TaskMgr {
 public:
  UplinkModule() : CQOV_TaskMgr(kUplink, kNoWorkers, "uplink"), uplink_(this) {}

  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    QOV_GUARD(guard, kUplink);
    try {
      return uplink_.start(readPlan()) == 0;
    } catch (const CQOV_Exception& exception) {
      QOV_ERROR(guard, 1, "the device configuration does not do: %s", exception.what());
      return false;
    }
  }

 private:
  static constexpr unsigned int kNoWorkers = 0;

  // Used by the module's thread, which has ended when this is destroyed.
  UplinkTask uplink_;
};

}  // namespace
}  // namespace devagent

QOV_MODULE(devagent::UplinkModule)
