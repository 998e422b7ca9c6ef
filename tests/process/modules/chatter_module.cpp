// A module that works all the time: a thread of its own sends it asynchronous messages, which its
// workers log through the module's kit; the thread logs, too. The second initialisation of such a
// module in a process makes a static object, or fails when QOV_TEST_SECOND_FAILS is set;
// QOV_TEST_EXIT ("first" or "second") says which one ends the process with status 3 there, its
// threads at work, its leader with a message for a module that does not exist.
//   QOV_TEST_GID  its gid
// When it is gone, the file "handled" has the number of messages that workers have handled.
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_task.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "tests/process/modules/agent_files.h"
#include "tests/process/modules/own_message.h"

namespace {

constexpr int kGid = QOV_TEST_GID;
constexpr int kNobody = 99;
constexpr int kExitStatus = 3;

/// A static object of the library, which must outlive the module that works with it.
class WorkedWith {
 public:
  ~WorkedWith() {
    if (users_ != 0) {
      std::abort();
    }
  }
  void begin() { ++users_; }
  void end() { --users_; }

 private:
  std::atomic<int> users_{0};
};

WorkedWith workedWith;

/// Goes when no worker is left.
class Handled {
 public:
  ~Handled() { qov::test::makeFile("handled", std::to_string(count_)); }
  void add() { ++count_; }

 private:
  std::atomic<int> count_{0};
};

Handled handled;

/// Another one, made by the first call.
WorkedWith& madeLate() {
  static WorkedWith late;
  return late;
}

class Worker : public CQOV_CommonTask {
 public:
  explicit Worker(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {}

  int handleMessage(CQOV_MsgPackage&) override {
    CQOVDebugKitGuard guard(kGid, "int Worker::handleMessage(CQOV_MsgPackage&)");
    guard.debug(1, __FUNCTION__, __LINE__, "chatter handles");
    guard.info(2, __FUNCTION__, __LINE__, "chatter works");
    handled.add();
    return 0;
  }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(kGid, 2, "chatter") { workedWith.begin(); }
  ~Module() override {
    stop_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
    if (late_ != nullptr) {
      late_->end();
    }
    workedWith.end();
  }

  CQOV_Task* createTask() override { return new Worker(this); }

  bool initEnv() override {
    const std::string which = qov::test::makeFile("first") ? "first" : "second";
    if (which == "second" && std::getenv("QOV_TEST_SECOND_FAILS") != nullptr) {
      return false;
    }
    thread_ = std::thread([this] { chat(); });
    const char* const exiting = std::getenv("QOV_TEST_EXIT");
    if (exiting != nullptr && which == exiting) {
      qov::test::putAMessageTo(
          kNobody, [this](ACE_Message_Block* block) { return putq(block, nullptr) >= 0; });
      std::exit(kExitStatus);
    }
    if (which == "second") {
      late_ = &madeLate();
      late_->begin();
    }
    return true;
  }

 private:
  void chat() {
    while (!stop_) {
      qov::test::sendAMessageTo(kGid);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  std::atomic<bool> stop_{false};
  std::thread thread_;
  WorkedWith* late_ = nullptr;
};

}  // namespace

QOV_MODULE(Module)
