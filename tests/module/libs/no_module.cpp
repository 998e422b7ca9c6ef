// Module libraries that give no module. QOV_TEST_ENTRY is the body of the entry function; without
// it there is none. They also serve as plug-ins: nothing in them pins the library in memory.
//   QOV_TEST_NEEDS  a function that the library calls and does not have
//   QOV_TEST_HAS    a function that it has
//   QOV_TEST_POLICY what it answers to ACE when it is closed
#include <pthread.h>

class CQOV_TaskMgr;

extern "C" int qov_test_plugin_answer() {
  return 42;
}

#ifdef QOV_TEST_NEEDS
extern "C" int QOV_TEST_NEEDS();

extern "C" int qov_test_unbound() {
  return QOV_TEST_NEEDS();
}
#endif

#ifdef QOV_TEST_HAS
extern "C" int QOV_TEST_HAS() {
  return 1;
}
#endif

#ifdef QOV_TEST_POLICY
#include <ace/config-all.h>

extern "C" int _get_dll_unload_policy() {
  return QOV_TEST_POLICY;
}
#endif

#ifdef QOV_TEST_ENTRY
extern "C" CQOV_TaskMgr* QOV_CreateModule() {
  QOV_TEST_ENTRY;
}
#endif
