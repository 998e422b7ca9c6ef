// A module whose only worker asks another one for each message that it gets, and waits long for the
// answer: of two that ask each other neither goes on. It answers nobody.
//   QOV_TEST_GID    its gid
//   QOV_TEST_ASKED  the gid of the module that it asks
//   QOV_TEST_NAME   its name
//   QOV_TEST_BEGINS whether it sends itself a message to begin with
#include <qovpub/qov_module.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_task.h>

#include <chrono>
#include <thread>

namespace {

constexpr std::uint64_t kBegin = 1000;

class Worker : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;

  int handleMessage(CQOV_MsgPackage& message) override {
    const std::uint64_t next = message.head().opc_ + 1;
    // The other one may not be loaded yet.
    while (ask(next) == QOVReason::kNoReceiver) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return 0;
  }

 private:
  QOVReason ask(std::uint64_t opc) {
    return QOVRequest(*this, QOV_TEST_ASKED, opc).ask(std::chrono::minutes(10)).reason();
  }
};

class Asking : public CQOV_TaskMgr {
 public:
  Asking() : CQOV_TaskMgr(QOV_TEST_GID, 1, QOV_TEST_NAME), beginning_(this) {}

  CQOV_Task* createTask() override { return new Worker(this); }

  bool initEnv() override {
    return !QOV_TEST_BEGINS ||
           QOVRequest(beginning_, QOV_TEST_GID, kBegin).tell() == QOVReason::kNone;
  }

 private:
  CQOV_Task beginning_;
};

}  // namespace

QOV_MODULE(Asking)
