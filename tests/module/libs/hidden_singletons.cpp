// A library that hides all its symbols but these: where it finds the process's singletons.
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_utility.h>

#define QOV_TEST_SHOWN extern "C" __attribute__((visibility("default")))

QOV_TEST_SHOWN const void* qov_test_loader() {
  return ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>::instance();
}

QOV_TEST_SHOWN const void* qov_test_process() {
  return ACE_Singleton<CProcInfo, ACE_Thread_Mutex>::instance();
}

QOV_TEST_SHOWN const void* qov_test_kits() {
  return ACE_Unmanaged_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>::instance();
}
