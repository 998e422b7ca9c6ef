// A module whose classes have names that other libraries may use, too.
//   QOV_TEST_NAME     the name in its events
//   QOV_TEST_GID      its gid
//   QOV_TEST_MANAGER  the class of its manager
//   QOV_TEST_WORKER   the class of its workers
#include <qovpub/qov_module.h>
#include <qovpub/qov_task.h>

#include <string>

#include "tests/module/libs/events.h"

class QOV_TEST_WORKER : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;

  int handleMessage(CQOV_MsgPackage&) override {
    qov::test::recordEvent(QOV_TEST_NAME " got a message");
    return 0;
  }
};

class QOV_TEST_MANAGER : public CQOV_TaskMgr {
 public:
  // The caller gives the gid, whichever library this constructor comes from.
  explicit QOV_TEST_MANAGER(unsigned gid = QOV_TEST_GID) : CQOV_TaskMgr(gid, 2, QOV_TEST_NAME) {}

  CQOV_Task* createTask() override { return new QOV_TEST_WORKER(this); }
};

QOV_MODULE(QOV_TEST_MANAGER)
