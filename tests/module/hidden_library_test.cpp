#include <dlfcn.h>
#include <gtest/gtest.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_utility.h>

#include "tests/support/this_process.h"

namespace qov::test {
namespace {

/// A library whose own symbols are hidden.
class HiddenLibrary : public ::testing::Test {
 protected:
  HiddenLibrary() { thisProcess(); }

  /// What the library's function `name` gives.
  const void* given(const char* name) {
    const auto function = reinterpret_cast<const void* (*)()>(::dlsym(library_, name));
    EXPECT_NE(function, nullptr) << name;
    return function == nullptr ? nullptr : function();
  }

 private:
  void* const library_ = ::dlopen(QOV_TEST_HIDDEN_SINGLETONS, RTLD_NOW);
};

TEST_F(HiddenLibrary, MeetsTheOneLoader) {
  EXPECT_EQ(given("qov_test_loader"),
            (ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>::instance()));
}

TEST_F(HiddenLibrary, MeetsTheOneProcessInformation) {
  EXPECT_EQ(given("qov_test_process"), (ACE_Singleton<CProcInfo, ACE_Thread_Mutex>::instance()));
}

TEST_F(HiddenLibrary, MeetsTheOneRegistryOfDebugKits) {
  EXPECT_EQ(given("qov_test_kits"), CQOVDebugKitMgr::instance());
}

}  // namespace
}  // namespace qov::test
