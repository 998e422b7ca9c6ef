#include <dlfcn.h>
#include <pthread.h>

#include <ace/DLL_Manager.h>
#include <qovpub/qov_plugins.h>

#include <thread>

#include "tests/module/module_fixture.h"
#include "tests/support/sanitizers.h"

using ::testing::IsEmpty;

namespace qov::test {
namespace {

constexpr const char* kOpening = "qovt_opening_plugin";
constexpr const char* kPlain = "qovt_plain_plugin";

ACE_DLL_Handle* openHere(const char* plugin) {
  return ACE_DLL_Manager::instance(1024)->open_dll(plugin, RTLD_LAZY | RTLD_GLOBAL, nullptr);
}

/// How often `plugin` is open besides.
int countOpen(const char* plugin) {
  const int count = openHere(plugin)->refcount() - 1;
  ACE_DLL_Manager::instance(1024)->close_dll(plugin);
  return count;
}

/// Keeps the library that it is bound to.
class Keeper : public CQOV_PluginOperator {
 public:
  bool init(ACE_DLL_Handle* dll) override {
    dll_ = dll;
    return true;
  }
  bool finds(const char* symbol) { return dll_->symbol(symbol, true) != nullptr; }

 private:
  ACE_DLL_Handle* dll_ = nullptr;
};

/// Ends its thread instead of binding.
class Leaver : public CQOV_PluginOperator {
 public:
  bool init(ACE_DLL_Handle*) override { ::pthread_exit(nullptr); }
};

class PluginsThreads : public ModuleTest {
 protected:
  ~PluginsThreads() override { CQOV_Plugins::close(); }
  CQOV_Plugins& plugins() { return *CQOV_Plugins::instance(); }
};

TEST_F(PluginsThreads, ALibraryThatIsOpenedFirstTwiceAtOnceStaysOpenForAllWhoHaveOpenedIt) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  Keeper inner;
  Keeper outer;
  Keeper third;
  // As another thread would: this opening begins and ends while the first one is under way.
  setOutlet([&] {
    setOutlet([] {});
    EXPECT_TRUE(plugins().open(kOpening, inner, 1));
  });
  EXPECT_TRUE(plugins().open(kOpening, outer, 2));
  EXPECT_TRUE(plugins().open(kOpening, third, 3));
  EXPECT_EQ(countOpen(kOpening), 3);

  plugins().remove(1u);
  plugins().remove(2u);
  EXPECT_EQ(countOpen(kOpening), 1);
  EXPECT_TRUE(third.finds("qov_test_plugin_answer"));

  plugins().remove(3u);
  EXPECT_FALSE(third.finds("qov_test_plugin_answer"));
  EXPECT_EQ(::dlopen("libqovt_opening_plugin.so", RTLD_NOW | RTLD_NOLOAD), nullptr);
}

TEST_F(PluginsThreads, AnOperatorThatEndsItsThreadLeavesTheLibraryClosedAndUnregistered) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  std::thread thread([this] {
    Leaver leaver;
    plugins().open(kPlain, leaver, 1);
  });
  thread.join();
  EXPECT_EQ(countOpen(kPlain), 0);
  plugins().clear();
  EXPECT_THAT(messages("INFO"), IsEmpty());
}

}  // namespace
}  // namespace qov::test
