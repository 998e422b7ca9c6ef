// A module that asks the module `skeleton` once, and writes what came of it into the log.
#include <qovpub/qov_log.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_task.h>

#include <chrono>
#include <string>

#include "skeleton_module.h"

namespace skeleton_module {

class Asker : public CQOV_Task {
 public:
  using CQOV_Task::CQOV_Task;

  int svc() override {
    QOV_GUARD(guard, kAsker);
    QOVRequest request(*this, kModule, kGreet);
    request.addRecord(kGreet).addString(kName, "world");
    if (const QOVAnswer answer = request.ask(std::chrono::seconds(5))) {
      const std::string text((*answer)[0].getString(kText));
      QOV_INFO(guard, 1, "skeleton answered: %s", text.c_str());
    } else {
      QOV_ERROR(guard, 2, "no answer from skeleton: %s, result %d", answer.text(), answer.result());
    }
    return 0;
  }
};

class AskerModule : public CQOV_TaskMgr {
 public:
  AskerModule() : CQOV_TaskMgr(kAsker, 0, "skeleton_asker"), asker_(this) {}

  // Nobody asks this module: it has no pool of workers, but one task with a thread of its own.
  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override {
    return asker_.activate(THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, 1, 0,
                           ACE_DEFAULT_THREAD_PRIORITY, gid()) == 0;
  }

 private:
  Asker asker_;
};

}  // namespace skeleton_module

QOV_MODULE(skeleton_module::AskerModule)
