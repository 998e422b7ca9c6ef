// Module libraries that give no module. QOV_TEST_ENTRY is the body of the entry function; without
// it there is none. They also serve as plug-ins: nothing in them pins the library in memory.
#include <pthread.h>

class CQOV_TaskMgr;

extern "C" int qov_test_plugin_answer() {
  return 42;
}

#ifdef QOV_TEST_ENTRY
extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  QOV_TEST_ENTRY;
}
#endif
