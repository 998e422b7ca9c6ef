#include <dlfcn.h>

#include <ace/DLL_Manager.h>
#include <qovpub/qov_plugins.h>

#include <chrono>
#include <string>
#include <thread>

#include "tests/module/module_fixture.h"
#include "tests/support/latch.h"
#include "tests/support/sanitizers.h"

using ::testing::ElementsAre;

namespace qov::test {
namespace {

constexpr const char* kClosing = "qovt_closing_plugin";
constexpr const char* kOther = "qovt_plugin_one";

class Binder : public CQOV_PluginOperator {
 public:
  bool init(ACE_DLL_Handle*) override { return true; }
};

/// What a plug-in's static destructor, and who runs beside it, finds while the registry closes.
class PluginsClose : public ModuleTest {
 protected:
  ~PluginsClose() override {
    setOutlet([] {});
    CQOV_Plugins::close();
  }

  CQOV_Plugins& plugins() { return *CQOV_Plugins::instance(); }

  void closesWith(const std::function<void()>& during) {
    ASSERT_TRUE(plugins().open(kClosing, binder, 1));
    setOutlet(during);
    CQOV_Plugins::close();
  }

  bool staysMapped(const std::string& plugin) {
    EXPECT_TRUE(plugins().open(plugin.c_str(), binder, 1)) << log.text();
    plugins().remove(1u);
    void* const handle = ::dlopen(("lib" + plugin + ".so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) {
      ::dlclose(handle);
    }
    return handle != nullptr;
  }

  Binder binder;
};

TEST_F(PluginsClose, IsDoneBeforeACloseOfAnotherThreadReturns) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  constexpr std::chrono::milliseconds kLongEnoughToReturn{200};
  Latch returned;
  std::thread other;
  bool returnedEarly = true;
  closesWith([&] {
    other = std::thread([&] {
      CQOV_Plugins::close();
      returned.count();
    });
    returnedEarly = returned.waitFor(1, kLongEnoughToReturn);
  });
  other.join();
  EXPECT_FALSE(returnedEarly);
}

TEST_F(PluginsClose, LetsAStaticDestructorUseTheRegistryAndClosesWhatThatOpens) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  CQOV_Plugins* const registry = &plugins();
  CQOV_Plugins* found = nullptr;
  bool opened = false;
  closesWith([&] {
    found = CQOV_Plugins::instance();
    opened = found->open(kOther, binder, 2);
  });
  EXPECT_EQ(found, registry);
  EXPECT_TRUE(opened);
  EXPECT_EQ(timesOpen(kOther), 0);
  EXPECT_THAT(messages("INFO"), ElementsAre("Load plugin name is qovt_closing_plugin!",
                                            "Remove plugin name is qovt_closing_plugin!",
                                            "Load plugin name is qovt_plugin_one!",
                                            "Remove plugin name is qovt_plugin_one!"));
}

TEST_F(PluginsClose, DoesNothingWithinItself) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  closesWith([] { CQOV_Plugins::close(); });
  log.clear();
  EXPECT_TRUE(plugins().open(kOther, binder, 2));
  CQOV_Plugins::close();
  EXPECT_EQ(timesOpen(kOther), 0);
}

TEST_F(PluginsClose, LeavesALibraryThatNeedsAceInMemory) {
  EXPECT_TRUE(staysMapped(kOther));
}

TEST_F(PluginsClose, LetsALibraryGoThatNeedsAceAndSaysThatItMay) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  EXPECT_FALSE(staysMapped("qovt_leaving_plugin"));
}

}  // namespace
}  // namespace qov::test
