#include "tests/module/libs/shared_manager.h"

#include <qovpub/qov_task.h>

namespace qov::test {
namespace {

class Worker : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;
  int handleMessage(CQOV_MsgPackage&) override { return 0; }
};

}  // namespace

SharedManager::SharedManager(unsigned gid) : CQOV_TaskMgr(gid, 1, "sharing") {}

CQOV_Task* SharedManager::createTask() {
  return new Worker(this);
}

}  // namespace qov::test
