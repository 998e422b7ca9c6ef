// The modules `drill` and `partner`, one source: trouble that an operator has to find. A handler of
// `drill` sleeps, then the two ask each other, and neither has another worker that could answer.
// scripts/demo shows how `qovctl agent` tells of both.
#include <qovpub/qov_handlers.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_request.h>

#include <chrono>
#include <memory>
#include <thread>

#include "examples/common/messages.h"

namespace devagent {
namespace {

/// Which of the two this is.
constexpr Module kThis = DEVAGENT_DRILL_MODULE;
constexpr Module kOther = kThis == kDrill ? kPartner : kDrill;

class DrillWorker : public QOVHandlers<DrillWorker> {
 public:
  explicit DrillWorker(CQOV_TaskMgr* module)
      : QOVHandlers(module, {{kSleep, &DrillWorker::sleep}, {kAskBack, &DrillWorker::askBack}}) {}

 private:
  int sleep(CQOV_MsgPackage&) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    return 0;
  }

  /// The stop of the agent ends it.
  int askBack(CQOV_MsgPackage&) {
    return QOVRequest(*this, kOther, kAskBack).ask(std::chrono::minutes(10)) ? 0 : -1;
  }
};

class DrillModule : public CQOV_TaskMgr {
 public:
  DrillModule()
      : CQOV_TaskMgr(kThis, kWorkers, kThis == kDrill ? "drill" : "partner"), beginning_(this) {}

  CQOV_Task* createTask() override { return std::make_unique<DrillWorker>(this).release(); }

  /// The partner has the drill begin: the first message between modules waits until all of them are
  /// loaded, and so the one that notes what handlers do is there.
  bool initEnv() override { return kThis != kPartner || (begin(kSleep) && begin(kAskBack)); }

 private:
  static constexpr unsigned int kWorkers = 1;

  bool begin(Operation operation) {
    return QOVRequest(beginning_, kOther, operation).tell() == QOVReason::kNone;
  }

  CQOV_Task beginning_;
};

}  // namespace
}  // namespace devagent

QOV_MODULE(devagent::DrillModule)
