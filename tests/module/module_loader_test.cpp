#include <ace/Message_Block.h>

#include <cerrno>

#include "tests/module/module_fixture.h"
#include "tests/support/failing_new.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

namespace qov::test {
namespace {

class ModuleLoader : public ModuleTest {
 protected:
  /// Sends a block that means nothing to a leader, which releases it.
  static bool sendsIgnored(CQOV_Module_Loader& to, u_short gid) {
    constexpr int kIgnoredType = 77;
    ACE_Message_Block* const block = new ACE_Message_Block(0, kIgnoredType);
    const bool sent = to.sendMsg(gid, block) == 0;
    if (!sent) {
      block->release();
    }
    return sent;
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

TEST_F(ModuleLoader, LogsTheUnloadingWhenTheModulesThreadsHaveEnded) {
  loads({"alpha"});
  loader().unload();
  const std::string text = log.text();
  EXPECT_LT(text.find("Manager thread(3) exit!"), text.find("Unload module qovt_alpha!"));
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

TEST_F(ModuleLoader, RefusesANameWithoutLibrary) {
  mark({"nowhere"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(
      messages("ERR"),
      ElementsAre("Failed to load module qovt_nowhere, because module file doesn't exist!"));
}

TEST_F(ModuleLoader, RefusesALibraryWithoutEntryFunction) {
  mark({"no_entry"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"),
              ElementsAre("Failed to load module qovt_no_entry, because entry function "
                          "QOV_CreateModule is null!"));
}

TEST_F(ModuleLoader, RefusesAnEntryFunctionThatGivesNothing) {
  mark({"null_object"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(
      messages("ERR"),
      ElementsAre("Failed to load module qovt_null_object, because module object is null!"));
}

TEST_F(ModuleLoader, TakesAnEntryFunctionThatThrowsForOneThatGivesNothing) {
  mark({"throwing_entry"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(
      messages("ERR"),
      ElementsAre("Failed to load module qovt_throwing_entry, because module object is null!"));
}

TEST_F(ModuleLoader, RefusesGid256AndDeletesItsModule) {
  mark({"gid256"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"), Contains("gid(256) is invalid which module name is qovt_gid256!"));
  EXPECT_THAT(events(), ElementsAre("gid256 created", "gid256 deleted"));
}

TEST_F(ModuleLoader, AcceptsGid255) {
  loads({"last"});
  EXPECT_TRUE(hasModule(255));
}

TEST_F(ModuleLoader, RefusesTheSecondModuleOfAGidAndKeepsTheFirst) {
  mark({"alpha", "twin"});
  std::list<std::string> names;
  loader().getModuleList(names);
  EXPECT_FALSE(loader().load());
  const std::string kept = names.front().substr(5);
  const std::string refused = names.back().substr(5);
  EXPECT_THAT(messages("ERR"),
              ElementsAre("gid(3) is invalid which module name is qovt_" + refused + "!"));
  EXPECT_THAT(events(), ElementsAre(kept + " created", kept + " initialised", refused + " created",
                                    refused + " deleted"));
  EXPECT_TRUE(hasModule(3));
}

TEST_F(ModuleLoader, DeletesAModuleThatDoesNotInitialise) {
  mark({"failing_init"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"), Contains("Failed to init module qovt_failing_init!"));
  EXPECT_THAT(events(), Contains("failing_init deleted"));
  EXPECT_FALSE(hasModule(7));
}

TEST_F(ModuleLoader, TakesAnInitialisationThatThrowsForAFailedOne) {
  mark({"throwing_init"});
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"), Contains("Failed to init module qovt_throwing_init!"));
  EXPECT_THAT(events(), Contains("throwing_init deleted"));
}

TEST_F(ModuleLoader, DeletesAModuleThatItHasNoMemoryToKeep) {
  mark({"alpha"});
  // What the table keeps of a module: its manager and its library.
  const FailingNew failing(2 * sizeof(void*));
  errno = 0;
  EXPECT_FALSE(loader().load());
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(failing.failures(), 1);
  EXPECT_THAT(events(), ElementsAre("alpha created", "alpha initialised", "alpha deleted"));
  EXPECT_THAT(messages("ERR"), IsEmpty());
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
  std::list<std::string> names;
  loader().getModuleList(names);
  EXPECT_FALSE(loader().load());
  log.clear();
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"),
              ElementsAre(::testing::HasSubstr("which module name is " + names.front() + "!")));
}

TEST_F(ModuleLoader, StopsTheModulesOfAFailedLoadAtItsOwnEnd) {
  mark({"either", "other"});
  EXPECT_FALSE(loader().load());
  destroyLoader();
  EXPECT_EQ(countDeleted(), 2);
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
  setOutlet([&] { sent = hasModule(9); });
  loads({"sending_init"});
  setOutlet([] {});
  EXPECT_FALSE(sent);
  EXPECT_THAT(messages("WARN"), ElementsAre("Pid 9 is invalid!"));
  EXPECT_TRUE(hasModule(9)) << "the lock for writing was given back";
}

TEST_F(ModuleLoader, TracesItsOperations) {
  mark({"nowhere"});
  const ProcessLog traced;
  loader().load();
  loader().unload();
  EXPECT_THAT(traced.text(), ::testing::HasSubstr("enter bool CQOV_Module_Loader::load()...\n"));
  EXPECT_THAT(
      traced.text(),
      ::testing::HasSubstr(
          "enter void CQOV_Module_Loader::getModuleList(std::list<std::string>&) const..."));
  EXPECT_THAT(traced.text(), ::testing::HasSubstr("leave bool CQOV_Module_Loader::load(): NOK\n"));
  EXPECT_THAT(traced.text(), ::testing::HasSubstr("leave void CQOV_Module_Loader::unload(): OK\n"));
}

}  // namespace
}  // namespace qov::test
