#include <ace/Message_Block.h>
#include <malloc.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_leader_task.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

#include "task/copy_choice.h"
#include "tests/module/module_fixture.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/latch.h"
#include "tests/support/sanitizers.h"

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

namespace qov::test {
namespace {

class ModuleLoader : public ModuleTest {
 protected:
  /// The names of the marked modules, in the order of the directory.
  std::vector<std::string> listed() {
    std::list<std::string> names;
    loader().getModuleList(names);
    std::vector<std::string> listed;
    for (const std::string& name : names) {
      listed.push_back(name.substr(std::strlen("qovt_")));
    }
    return listed;
  }

  static std::vector<std::string> eventsOfLoading(const std::vector<std::string>& modules) {
    std::vector<std::string> expected;
    for (const std::string& module : modules) {
      expected.push_back(module + " created");
      expected.push_back(module + " initialised");
    }
    return expected;
  }

  bool hasModule(u_short gid) { return sendsIgnored(loader(), gid); }

  static int countDeleted() { return countEvent("either deleted") + countEvent("other deleted"); }
};

TEST_F(ModuleLoader, LoadsInitialisesAndUnloadsAModule) {
  loads({"alpha"});
  EXPECT_THAT(events(), ElementsAre("alpha created", "alpha initialised"));
  EXPECT_THAT(messages("INFO"), Contains("Successed to init module qovt_alpha!"));
  EXPECT_TRUE(hasModule(3));

  loader().unload();
  EXPECT_THAT(events(), Contains("alpha deleted"));
  EXPECT_THAT(messages("WARN"), Contains("Unload module qovt_alpha!"));
  EXPECT_FALSE(hasModule(3));
}

TEST_F(ModuleLoader, UnloadsInTheOrderOfTheGidsWhateverTheOrderOfLoading) {
  loads({"last", "alpha", "beta", "first"});
  log.clear();
  loader().unload();
  EXPECT_THAT(messages("WARN"),
              ElementsAre("Unload module qovt_first!", "Unload module qovt_alpha!",
                          "Unload module qovt_beta!", "Unload module qovt_last!"));
}

TEST_F(ModuleLoader, LoadsOneAfterTheOtherInTheOrderOfTheList) {
  loads({"last", "alpha", "beta", "first"});
  EXPECT_EQ(events(), eventsOfLoading(listed()));
}

TEST_F(ModuleLoader, GoesNoFurtherThanTheFirstFailure) {
  mark({"last", "alpha", "beta", "first", "no_entry"});
  EXPECT_FALSE(loader().load());
  std::vector<std::string> before = listed();
  before.erase(std::find(before.begin(), before.end(), "no_entry"), before.end());
  EXPECT_EQ(events(), eventsOfLoading(before));
}

TEST_F(ModuleLoader, ClosesTheLibraryThatItUnloads) {
  loads({"alpha"});
  EXPECT_EQ(timesOpen("qovt_alpha"), 1);
  loader().unload();
  EXPECT_EQ(timesOpen("qovt_alpha"), 0);
}

TEST_F(ModuleLoader, UnloadsAtItsEnd) {
  loads({"alpha"});
  destroyLoader();
  EXPECT_THAT(messages("WARN"), ElementsAre("Unload module qovt_alpha!"));
  EXPECT_THAT(events(), Contains("alpha deleted"));
  EXPECT_EQ(timesOpen("qovt_alpha"), 0);
}

TEST_F(ModuleLoader, UnloadsAModuleThatGoesOnSending) {
  setOutlet([&loader = loader()] { sendsIgnored(loader, 13); });
  loads({"sender"});
  EXPECT_TRUE(waitForEvent("sent"));
  loader().unload();
  EXPECT_THAT(events(), Contains("deleted while it sent itself"));
  setOutlet([] {});
}

TEST_F(ModuleLoader, LogsTheUnloadingWhenTheModulesThreadsHaveEnded) {
  loads({"alpha"});
  loader().unload();
  const std::string text = log.text();
  EXPECT_LT(text.find("Manager thread(3) exit!"), text.find("Unload module qovt_alpha!"));
}

TEST_F(ModuleLoader, UnloadsAModuleWhoseDestructorAloneEndsAThreadOfItsGroup) {
  loads({"own_thread"});
  loader().unload();
  EXPECT_THAT(events(), ElementsAre("own_thread created", "own_thread initialised",
                                    "own_thread deleted", "own_thread thread ends"));
}

TEST_F(ModuleLoader, SecondLoadIsTrueAndOpensNothing) {
  loads({"alpha"});
  mark({"beta"});
  EXPECT_TRUE(loader().load());
  EXPECT_THAT(events(), Not(Contains("beta created")));
}

TEST_F(ModuleLoader, SecondLoadStillListsTheDirectory) {
  loads({"alpha"});
  thisProcess().removeModules();
  EXPECT_FALSE(loader().load());
  EXPECT_TRUE(hasModule(3));
}

TEST_F(ModuleLoader, SecondUnloadDoesNothing) {
  loads({"alpha"});
  loader().unload();
  log.clear();
  loader().unload();
  EXPECT_THAT(messages("WARN"), IsEmpty());
}

TEST_F(ModuleLoader, LoadsAgainAfterUnload) {
  loads({"alpha"});
  loader().unload();
  EXPECT_TRUE(loader().load());
  EXPECT_TRUE(hasModule(3));
}

/// Modules whose libraries stay in memory when they are closed, and such that go.
class ModuleLoaderCycle : public ModuleLoader,
                          public ::testing::WithParamInterface<std::array<const char*, 2>> {};

INSTANTIATE_TEST_SUITE_P(Modules, ModuleLoaderCycle,
                         ::testing::Values(std::array{"alpha", "beta"},
                                           std::array{"hidden_going", "hidden_other_going"}));

TEST_P(ModuleLoaderCycle, KeepsNothingOfALoadingOnceItIsUnloaded) {
#if QOV_TEST_ASAN || QOV_TEST_TSAN
  GTEST_SKIP() << "the sanitizer has an allocator of its own, which does not tell what is in use";
#endif
  constexpr int kCycles = 1000;
  // Room that the C library takes for many at once, whatever has grown by itself included.
  constexpr std::size_t kSlack = 16 * kCycles;
  mark({GetParam()[0], GetParam()[1]});
  const auto bytesAfter = [this](int cycles) {
    for (; cycles > 0; --cycles) {
      EXPECT_TRUE(loader().load());
      loader().unload();
      log.clear();
      resetEvents();
    }
    return ::mallinfo2().uordblks;
  };
  const std::size_t before = bytesAfter(kCycles / 10);
  EXPECT_LT(bytesAfter(kCycles), before + kSlack);
}

TEST_F(ModuleLoader, LetsGoOfALibraryThatHasNothingToLeaveBehind) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  loads({"hidden_going"});
  loader().unload();
  EXPECT_THAT(events(), Contains("hidden_going static object gone"));
}

TEST_F(ModuleLoader, RefusesANameWithoutLibrary) {
  mark({"nowhere"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"),
              ElementsAre("Failed to load module qovt_nowhere, because module file doesn't exist!",
                          StartsWith("Failed to open the library of module qovt_nowhere: none of "
                                     "libqovt_nowhere.so, qovt_nowhere.so, qovt_nowhere is in ")));
}

TEST_F(ModuleLoader, RefusesALibraryWithoutEntryFunction) {
  mark({"no_entry"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"),
              ElementsAre("Failed to load module qovt_no_entry, because entry function "
                          "QOV_CreateModule is null!",
                          EndsWith("/libqovt_no_entry.so: the library does not export "
                                   "QOV_CreateModule")));
}

TEST_F(ModuleLoader, RefusesAnEntryFunctionThatGivesNothing) {
  mark({"null_object"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"),
              ElementsAre("Failed to load module qovt_null_object, because module object is null!",
                          EndsWith("/libqovt_null_object.so: QOV_CreateModule returned null")));
}

TEST_F(ModuleLoader, TakesAnEntryFunctionThatThrowsForOneThatGivesNothing) {
  mark({"throwing_entry"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(
      messages("ERR"),
      ElementsAre(
          "Failed to load module qovt_throwing_entry, because module object is null!",
          AllOf(StartsWith("Failed to create module qovt_throwing_entry: "),
                EndsWith("/libqovt_throwing_entry.so: an exception that is no std::exception"))));
}

TEST_F(ModuleLoader, RefusesGid256AndDeletesItsModule) {
  mark({"gid256"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"), Contains("gid(256) is invalid which module name is qovt_gid256!"));
  EXPECT_THAT(messages("ERR"), Contains(EndsWith(": a gid is a number from 0 to 255")));
  EXPECT_THAT(events(), ElementsAre("gid256 created", "gid256 deleted"));
}

TEST_F(ModuleLoader, AcceptsGid255) {
  loads({"last"});
  EXPECT_TRUE(hasModule(255));
}

TEST_F(ModuleLoader, RefusesTheSecondModuleOfAGidAndKeepsTheFirst) {
  mark({"alpha", "twin"});
  const std::vector<std::string> names = listed();
  EXPECT_FALSE(loader().load());
  const std::string& kept = names.front();
  const std::string& refused = names.back();
  EXPECT_THAT(messages("ERR"),
              ElementsAre("gid(3) is invalid which module name is qovt_" + refused + "!",
                          EndsWith(": module qovt_" + kept + " has this gid")));
  EXPECT_THAT(events(), ElementsAre(kept + " created", kept + " initialised", refused + " created",
                                    refused + " deleted"));
  EXPECT_TRUE(hasModule(3));
}

TEST_F(ModuleLoader, DeletesAModuleThatDoesNotInitialise) {
  mark({"failing_init"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"), Contains("Failed to init module qovt_failing_init!"));
  EXPECT_THAT(messages("ERR"), Contains(EndsWith(": init() returned false")));
  EXPECT_THAT(events(), Contains("failing_init deleted"));
  EXPECT_FALSE(hasModule(7));
}

TEST_F(ModuleLoader, TakesAnInitialisationThatThrowsForAFailedOne) {
  mark({"throwing_init"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"), Contains("Failed to init module qovt_throwing_init!"));
  EXPECT_THAT(messages("ERR"), Contains(EndsWith(": an exception that is no std::exception")));
  EXPECT_THAT(events(), Contains("throwing_init deleted"));
}

TEST_F(ModuleLoader, SaysOfAnInitialisationWithoutMemoryWhatItLacks) {
  mark({"init_without_memory"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"), Contains(EndsWith(": Cannot allocate memory")));
}

TEST_F(ModuleLoader, DeletesAModuleThatItHasNoMemoryToKeep) {
  mark({"alpha"});
  // What the table keeps of a module: its manager, its library and what it takes copies of.
  const auto failing =
      FailingAllocations::ofObjectsThatGiveNull(2 * sizeof(void*) + sizeof(qov::CopyChoice));
  errno = 0;
  EXPECT_FALSE(loader().load());
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(failing.hasFailed());
  EXPECT_THAT(events(), ElementsAre("alpha created", "alpha initialised", "alpha deleted"));
  EXPECT_THAT(messages("ERR"), IsEmpty());
  EXPECT_THAT(messages("INFO"), Not(Contains("Successed to init module qovt_alpha!")));
}

TEST_F(ModuleLoader, RefusesAModuleThatHasNoMemoryForItsLeader) {
  mark({"alpha"});
  const auto failing = FailingAllocations::ofSize(sizeof(CQOV_Leader_Task));
  EXPECT_FALSE(loader().load());
  EXPECT_TRUE(failing.hasFailed());
  EXPECT_THAT(messages("ERR"),
              ElementsAre("gid(4294967295) is invalid which module name is qovt_alpha!",
                          EndsWith(": its manager has no leader")));
  EXPECT_THAT(events(), ElementsAre("alpha created", "alpha deleted"));
}

/// A module that cannot be loaded.
class ModuleLoaderFailure : public ModuleLoader,
                            public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Module, ModuleLoaderFailure,
                         ::testing::Values("no_entry", "null_object", "throwing_entry", "gid256",
                                           "failing_init", "throwing_init"));

TEST_P(ModuleLoaderFailure, LeavesItsLibraryOpen) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  const std::string library = std::string("qovt_") + GetParam();
  const int before = timesOpen(library);
  mark({GetParam()});
  EXPECT_FALSE(loader().load());
  loader().unload();
  destroyLoader();
  EXPECT_EQ(timesOpen(library), before + 1);
}

/// A module that cannot be loaded and has started no thread by then.
class ModuleLoaderWithoutMemory : public ModuleLoader,
                                  public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Module, ModuleLoaderWithoutMemory,
                         ::testing::Values("no_entry", "null_object", "throwing_entry", "gid256"));

TEST_P(ModuleLoaderWithoutMemory, ThrowsNothingWhereverMemoryRunsOut) {
  mark({GetParam()});
  // What the process makes once and keeps is there from now on.
  EXPECT_FALSE(loader().load());
  bool failed = true;
  for (long count = 0; failed; ++count) {
    const auto failing = FailingAllocations::ofThoseThatThrow(count);
    EXPECT_NO_THROW(EXPECT_FALSE(loader().load())) << "after " << count << " allocations";
    failed = failing.hasFailed();
  }
}

// Of "either" and "other" the second one fails to initialise, whichever that is.

TEST_F(ModuleLoader, UnloadLeavesWhatAFailedLoadHasLoaded) {
  mark({"either", "other"});
  EXPECT_FALSE(loader().load());
  const int deleted = countDeleted();
  loader().unload();
  EXPECT_EQ(deleted, 1);
  EXPECT_EQ(countDeleted(), 1);
  EXPECT_NE(hasModule(11), hasModule(12));
}

TEST_F(ModuleLoader, AFurtherLoadFailsAtTheModuleThatAFailedOneHasLoaded) {
  mark({"either", "other"});
  const std::string first = listed().front();
  EXPECT_FALSE(loader().load());
  log.clear();
  EXPECT_FALSE(loader().load());
  const std::string gid = first == "either" ? "11" : "12";
  EXPECT_THAT(messages("ERR"),
              ElementsAre("gid(" + gid + ") is invalid which module name is qovt_" + first + "!",
                          EndsWith(": module qovt_" + first + " has this gid")));
}

TEST_F(ModuleLoader, StopsTheModulesOfAFailedLoadAtItsOwnEnd) {
  mark({"either", "other"});
  EXPECT_FALSE(loader().load());
  log.clear();
  destroyLoader();
  EXPECT_EQ(countDeleted(), 2);
  EXPECT_THAT(messages("WARN"), IsEmpty());
}

TEST_F(ModuleLoader, DeletesAFailedModuleWhileOthersCanSend) {
  setOutlet([&loader = loader()] { sendsIgnored(loader, 13); });
  mark({"sender", "other_sender"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(events(), Contains("deleted while the other one sent"));
  destroyLoader();
  setOutlet([] {});
}

TEST_F(ModuleLoader, GoesOnWithoutTheLockWhereItCannotBeTaken) {
  // An initialisation that sends is a mistake, since its thread holds the table locked for writing.
  bool sent = true;
  int sendError = 0;
  int broadcastError = 0;
  setOutlet([&] {
    errno = 0;
    sent = hasModule(9);
    sendError = std::exchange(errno, 0);
    loader().sendMsg2All(new ACE_Message_Block(8));
    broadcastError = errno;
  });
  loads({"sending_init"});
  setOutlet([] {});
  EXPECT_FALSE(sent);
  EXPECT_EQ(sendError, EDEADLK);
  EXPECT_EQ(broadcastError, EDEADLK);
  EXPECT_THAT(messages("WARN"), ElementsAre("Pid 9 is invalid!"));
  EXPECT_TRUE(hasModule(9)) << "the lock for writing was given back";
}

TEST_F(ModuleLoader, KeepsTheTableFromOthersUntilTheModulesHaveInitialised) {
  constexpr std::chrono::milliseconds kLongEnoughToBeRefused{200};
  bool delivered = false;
  std::thread sender;
  Latch sent;
  setOutlet([&] {
    sender = std::thread([&] {
      delivered = hasModule(9);
      sent.count();
    });
    sent.waitFor(1, kLongEnoughToBeRefused);
  });
  loads({"sending_init"});
  sender.join();
  setOutlet([] {});
  EXPECT_TRUE(delivered);
}

TEST_F(ModuleLoader, DoesNotWaitForThePoolOfAModule) {
  loads({"slow_factory", "alpha"});
  // Nor has it waited for as long as a module that nobody loads would.
  EXPECT_THAT(messages("WARN"), IsEmpty());
  EXPECT_TRUE(hasModule(17));
  openGate();
  EXPECT_TRUE(log.waitFor("Module(17) thread inited"));
}

TEST_F(ModuleLoader, UnloadsAModuleWhosePoolDoesNotStandYet) {
  loads({"slow_factory"});
  std::thread opener([this] {
    EXPECT_TRUE(log.waitFor("Manager thread(17) exit!"));
    openGate();
  });
  loader().unload();
  opener.join();
  EXPECT_THAT(events(), Contains("slow_factory deleted"));
}

TEST_F(ModuleLoader, TracesItsOperations) {
  const std::string list = "void CQOV_Module_Loader::getModuleList(std::list<std::string>&) const";
  mark({"nowhere"});
  EXPECT_THAT(tracesOf([this] { loader().load(); }),
              ElementsAre("enter bool CQOV_Module_Loader::load()...", "enter " + list + "...",
                          "leave " + list + ": OK", "leave bool CQOV_Module_Loader::load(): NOK"));
  EXPECT_THAT(tracesOf([this] { loader().unload(); }),
              ElementsAre("enter void CQOV_Module_Loader::unload()...",
                          "leave void CQOV_Module_Loader::unload(): OK"));
}

TEST_F(ModuleLoader, TracesItsEndAsAnUnloading) {
  EXPECT_THAT(tracesOf([this] { destroyLoader(); }),
              ElementsAre("enter void CQOV_Module_Loader::unload()...",
                          "leave void CQOV_Module_Loader::unload(): OK"));
}

}  // namespace
}  // namespace qov::test
