#ifndef QOV_TESTS_MODULE_LIBS_SHARED_MANAGER_H
#define QOV_TESTS_MODULE_LIBS_SHARED_MANAGER_H

#include <qovpub/qov_task_mgr.h>

namespace qov::test {

/// Lives in a library that modules share.
class SharedManager : public CQOV_TaskMgr {
 public:
  explicit SharedManager(unsigned gid);
  CQOV_Task* createTask() override;
};

}  // namespace qov::test

#endif
