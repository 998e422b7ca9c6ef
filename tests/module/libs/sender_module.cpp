// Of two such modules the first one starts a thread that uses the test's outlet until the module is
// deleted. The second one fails to initialise. The deletion of either waits for the first one to
// send.
//   QOV_TEST_GID     its gid
//   QOV_TEST_SECOND  how the second one fails: a statement
#include <pthread.h>
#include <qovpub/qov_task_mgr.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/module/libs/events.h"

namespace {

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(QOV_TEST_GID, 0, "sender") {}
  ~Module() override {
    // Two, since the first one may have got through before the deletion began.
    if (qov::test::waitForEvent("sent", qov::test::countEvent("sent") + 2)) {
      qov::test::recordEvent(thread_.joinable() ? "deleted while it sent itself"
                                                : "deleted while the other one sent");
    }
    stop_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    if (!qov::test::firstToInitialise()) {
      QOV_TEST_SECOND;
    }
    thread_ = std::thread([this] { send(); });
    return true;
  }

 private:
  void send() {
    while (!stop_) {
      qov::test::outlet()();
      qov::test::recordEvent("sent");
      std::this_thread::sleep_for(std::chrono::milliseconds(1));  // no flood of events
    }
  }

  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new Module;
}
