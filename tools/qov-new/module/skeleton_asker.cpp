// A module that asks the module `skeleton` once, and writes what came of it into the log.
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_utility.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "skeleton_module.h"

namespace skeleton_module {

class Asker : public CQOV_Task {
 public:
  using CQOV_Task::CQOV_Task;

  int svc() override {
    CQOVDebugKitGuard log(kAsker, "int Asker::svc()");
    const auto process = static_cast<std::uint8_t>(QOV_Utility::getProcPID());
    auto request = std::make_unique<CQOV_MsgPackage>();
    request->head().type_ = kRequest;
    request->head().spid_ = request->head().rpid_ = process;
    request->head().smid_ = kAsker;
    request->head().rmid_ = kModule;
    request->head().opc_ = kGreet;
    request->addRecord(kGreet).addString(kName, "world");

    ACE_Time_Value timeout(5);
    CQOV_MsgPackage* response = nullptr;
    const int result = send(request.release(), response, &timeout, true);
    const std::unique_ptr<CQOV_MsgPackage> answer(response);
    if (result == 0) {
      const std::string text((*answer)[0].getString(kText));
      log.info(1, __FUNCTION__, __LINE__, "skeleton answered: %s", text.c_str());
    } else if (result > 0) {
      log.error(2, __FUNCTION__, __LINE__, "skeleton refused with result %d", result);
    } else {
      log.error(3, __FUNCTION__, __LINE__, "no answer from skeleton: %s", std::strerror(errno));
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
