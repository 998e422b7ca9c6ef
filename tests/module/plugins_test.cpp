#include <dlfcn.h>

#include <ace/DLL_Manager.h>
#include <qovpub/qov_plugins.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/module/module_fixture.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/latch.h"
#include "tests/support/sanitizers.h"

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace qov::test {
namespace {

constexpr const char* kOne = "qovt_plugin_one";
constexpr const char* kTwo = "qovt_plugin_two";

bool isMapped(const std::string& plugin) {
  void* const handle = ::dlopen(("lib" + plugin + ".so").c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) {
    ::dlclose(handle);
  }
  return handle != nullptr;
}

class Binder : public CQOV_PluginOperator {
 public:
  bool init(ACE_DLL_Handle* dll) override {
    ++calls;
    const auto answer = reinterpret_cast<int (*)()>(dll->symbol("qov_test_plugin_answer"));
    bound = answer == nullptr ? 0 : answer();
    during();
    if (throws) {
      throw std::runtime_error("refused");
    }
    return accepts;
  }
  int calls = 0;
  int bound = 0;
  bool accepts = true;
  bool throws = false;
  std::function<void()> during = [] {};
};

class Plugins : public ModuleTest {
 protected:
  ~Plugins() override { CQOV_Plugins::close(); }
  CQOV_Plugins& plugins() { return *CQOV_Plugins::instance(); }
  Binder binder;
};

TEST_F(Plugins, OpensBindsAndRegistersALibrary) {
  EXPECT_TRUE(plugins().open(kOne, binder, 7));
  EXPECT_EQ(binder.bound, 42);
  EXPECT_EQ(timesOpen(kOne), 1);
  EXPECT_THAT(messages("INFO"), ElementsAre("Load plugin name is qovt_plugin_one!"));
}

TEST_F(Plugins, RefusesALibraryThatItHasNoMemoryToRegister) {
  struct TableNode {
    int colour;
    void* links[3];
    std::pair<const u_int, ACE_DLL_Handle*> entry;
  };
  // Whatever is made once, by ACE, the loader or the log, is there by then.
  ASSERT_TRUE(plugins().open(kOne, binder, 7));
  plugins().remove(7u);
  binder.calls = 0;
  log.clear();
  {
    const auto failing = FailingAllocations::ofSize(sizeof(TableNode));
    errno = 0;
    EXPECT_FALSE(plugins().open(kOne, binder, 7));
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_EQ(binder.calls, 0);
  EXPECT_EQ(timesOpen(kOne), 0);
  EXPECT_THAT(messages("WARN"), ElementsAre("Failed to open qovt_plugin_one"));
  EXPECT_THAT(messages("INFO"), IsEmpty());
}

TEST_F(Plugins, LetsTheOperatorUseTheRegistry) {
  Binder other;
  binder.during = [&] {
    EXPECT_TRUE(plugins().open(kTwo, other, 7));
    plugins().remove(8u);
  };
  EXPECT_TRUE(plugins().open(kOne, binder, 7));
  log.clear();
  plugins().remove(7u);
  EXPECT_THAT(messages("INFO"), ElementsAre("Remove plugin name is qovt_plugin_two!",
                                            "Remove plugin name is qovt_plugin_one!"));
}

TEST_F(Plugins, BindsWhatNeedsSymbolsThatNobodyHas) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  ASSERT_TRUE(plugins().open("qovt_unbound_plugin", binder, 7));
  EXPECT_EQ(binder.bound, 42);
}

TEST_F(Plugins, ShowsTheSymbolsOfALibraryToTheOthers) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  EXPECT_EQ(::dlsym(RTLD_DEFAULT, "qov_test_global_symbol"), nullptr);
  ASSERT_TRUE(plugins().open("qovt_global_plugin", binder, 7));
  EXPECT_NE(::dlsym(RTLD_DEFAULT, "qov_test_global_symbol"), nullptr);
}

TEST_F(Plugins, RefusesANullNameWithoutAskingTheOperator) {
  EXPECT_FALSE(plugins().open(nullptr, binder, 1));
  EXPECT_EQ(binder.calls, 0);
  EXPECT_THAT(messages("WARN"), ElementsAre("Invalid parameter, plugin name is null!"));
}

TEST_F(Plugins, RefusesALibraryThatIsNotThere) {
  EXPECT_FALSE(plugins().open("qovt_nowhere", binder, 1));
  EXPECT_THAT(messages("WARN"),
              ElementsAre("Failed to open qovt_nowhere",
                          HasSubstr("none of libqovt_nowhere.so, qovt_nowhere.so, ")));
}

TEST_F(Plugins, ClosesALibraryThatTheOperatorRefuses) {
  binder.accepts = false;
  EXPECT_FALSE(plugins().open(kOne, binder, 1));
  EXPECT_EQ(timesOpen(kOne), 0);
  EXPECT_THAT(messages("WARN"),
              ElementsAre("Failed to init qovt_plugin_one",
                          EndsWith("/libqovt_plugin_one.so: the plug-in's operator refuses it")));
  plugins().clear();
  EXPECT_THAT(messages("INFO"), IsEmpty());
}

TEST_F(Plugins, TakesAnOperatorThatThrowsForARefusal) {
  binder.throws = true;
  EXPECT_FALSE(plugins().open(kOne, binder, 1));
  EXPECT_EQ(timesOpen(kOne), 0);
}

TEST_F(Plugins, RemovesEveryPluginOfAnId) {
  ASSERT_TRUE(plugins().open(kOne, binder, 7));
  ASSERT_TRUE(plugins().open(kTwo, binder, 7));
  log.clear();
  plugins().remove(7u);
  EXPECT_THAT(messages("INFO"), ElementsAre("Remove plugin name is qovt_plugin_one!",
                                            "Remove plugin name is qovt_plugin_two!"));
  EXPECT_EQ(timesOpen(kOne), 0);
  EXPECT_EQ(timesOpen(kTwo), 0);
}

TEST_F(Plugins, TakesALibraryThatDoesWithoutAceOutOfMemory) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  ASSERT_TRUE(plugins().open("qovt_plain_plugin", binder, 7));
  EXPECT_TRUE(isMapped("qovt_plain_plugin"));
  plugins().remove(7u);
  EXPECT_FALSE(isMapped("qovt_plain_plugin"));
}

TEST_F(Plugins, AnUnknownIdRemovesNothing) {
  ASSERT_TRUE(plugins().open(kOne, binder, 7));
  log.clear();
  plugins().remove(8u);
  EXPECT_EQ(timesOpen(kOne), 1);
  EXPECT_THAT(messages("INFO"), IsEmpty());
}

TEST_F(Plugins, AnUnknownNameRemovesNothing) {
  ASSERT_TRUE(plugins().open(kOne, binder, 7));
  log.clear();
  plugins().remove("QOVT_PLUGIN_ONE");
  EXPECT_EQ(timesOpen(kOne), 1);
  EXPECT_THAT(messages("INFO"), IsEmpty());
}

TEST_F(Plugins, RemovesByNameOnlyTheEntryOfTheLowestId) {
  ASSERT_TRUE(plugins().open(kOne, binder, 9));
  ASSERT_TRUE(plugins().open(kOne, binder, 3));
  log.clear();
  plugins().remove(kOne);
  EXPECT_THAT(messages("INFO"), ElementsAre("Remove plugin name is qovt_plugin_one!"));
  EXPECT_EQ(timesOpen(kOne), 1);
  plugins().remove(3u);
  EXPECT_EQ(timesOpen(kOne), 1);
  plugins().remove(9u);
  EXPECT_EQ(timesOpen(kOne), 0);
}

TEST_F(Plugins, ADecoratedNameRemovesNothing) {
  ASSERT_TRUE(plugins().open(kOne, binder, 3));
  plugins().remove("libqovt_plugin_one.so");
  EXPECT_EQ(timesOpen(kOne), 1);
}

TEST_F(Plugins, RefusesToRemoveANullName) {
  plugins().remove(static_cast<const char*>(nullptr));
  EXPECT_THAT(messages("WARN"), ElementsAre("Invalid parameter, plugin name is null!"));
}

TEST_F(Plugins, CloseRemovesEverythingAndTheNextInstanceIsEmpty) {
  ASSERT_TRUE(plugins().open(kTwo, binder, 2));
  ASSERT_TRUE(plugins().open(kOne, binder, 1));
  log.clear();
  CQOV_Plugins::close();
  EXPECT_THAT(messages("INFO"), ElementsAre("Remove plugin name is qovt_plugin_one!",
                                            "Remove plugin name is qovt_plugin_two!"));
  EXPECT_EQ(timesOpen(kOne), 0);
  log.clear();
  plugins().clear();
  EXPECT_THAT(messages("INFO"), IsEmpty());
}

TEST_F(Plugins, InstanceIsTheSameUntilItIsClosed) {
  CQOV_Plugins* const first = CQOV_Plugins::instance();
  EXPECT_EQ(CQOV_Plugins::instance(), first);
}

TEST_F(Plugins, InstanceIsTheSameForThreadsThatAskFirst) {
  constexpr std::chrono::milliseconds kLongEnoughToMakeAnother{200};
  CQOV_Plugins* others = nullptr;
  Latch asked;
  std::thread other;
  CQOV_Plugins* mine = nullptr;
  {
    const BeforeAllocation meanwhile(sizeof(CQOV_Plugins), [&] {
      other = std::thread([&] {
        others = CQOV_Plugins::instance();
        asked.count();
      });
      asked.waitFor(1, kLongEnoughToMakeAnother);
    });
    mine = CQOV_Plugins::instance();
  }
  other.join();
  EXPECT_NE(mine, nullptr);
  EXPECT_EQ(others, mine);
}

TEST_F(Plugins, InstanceIsNullWithoutMemory) {
  {
    const auto failing = FailingAllocations::ofSize(sizeof(CQOV_Plugins));
    errno = 0;
    EXPECT_EQ(CQOV_Plugins::instance(), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_NE(CQOV_Plugins::instance(), nullptr);
}

TEST_F(Plugins, CloseWithoutARegistryDoesNothing) {
  CQOV_Plugins::close();
  EXPECT_EQ(log.text(), "");
}

TEST_F(Plugins, TracesItsOperations) {
  const std::string open = "bool CQOV_Plugins::open(const char*, CQOV_PluginOperator&, u_int)";
  EXPECT_THAT(tracesOf([this] { plugins().open(kOne, binder, 7); }),
              ElementsAre("enter " + open + "...", "leave " + open + ": OK"));
  EXPECT_THAT(tracesOf([this] { plugins().open("qovt_nowhere", binder, 7); }),
              ElementsAre("enter " + open + "...", "leave " + open + ": NOK"));
  EXPECT_THAT(tracesOf([this] { plugins().remove(7u); }),
              ElementsAre("enter void CQOV_Plugins::remove(u_int)...",
                          "leave void CQOV_Plugins::remove(u_int): OK"));
  EXPECT_THAT(tracesOf([this] { plugins().remove(kOne); }),
              ElementsAre("enter void CQOV_Plugins::remove(const char*)...",
                          "leave void CQOV_Plugins::remove(const char*): OK"));
  EXPECT_THAT(
      tracesOf([this] { plugins().clear(); }),
      ElementsAre("enter void CQOV_Plugins::clear()...", "leave void CQOV_Plugins::clear(): OK"));
}

TEST_F(Plugins, TracesItsEndAsAClearing) {
  EXPECT_THAT(tracesOf([] { CQOV_Plugins::instance(); }), IsEmpty());
  EXPECT_THAT(
      tracesOf([] { CQOV_Plugins::close(); }),
      ElementsAre("enter void CQOV_Plugins::clear()...", "leave void CQOV_Plugins::clear(): OK"));
}

}  // namespace
}  // namespace qov::test
