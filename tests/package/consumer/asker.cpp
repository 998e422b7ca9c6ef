// A module that asks the one of README.md, as README.md shows it, and stops the agent when it got
// the answer.
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_task.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>

namespace {

constexpr unsigned int kModule = 8;

class Asker : public CQOV_Task {
 public:
  using CQOV_Task::CQOV_Task;

  int svc() override {
#include "request.inc"
    CQOVDebugKitMgr::instance()->find(kModule)->info(1, __FUNCTION__, __LINE__, "got " + text);
    return kill(getpid(), SIGINT);
  }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(kModule, 0, "asker"), asker_(this) {}

  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    return asker_.activate(THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, 1, 0,
                           ACE_DEFAULT_THREAD_PRIORITY, gid()) == 0;
  }

 private:
  Asker asker_;
};

}  // namespace

QOV_MODULE(Module)
