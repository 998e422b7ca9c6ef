// A module that is nothing but an object of a shared library's class.
//   QOV_TEST_GID  its gid
#include "tests/module/libs/shared_manager.h"

extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  return new qov::test::SharedManager(QOV_TEST_GID);
}
