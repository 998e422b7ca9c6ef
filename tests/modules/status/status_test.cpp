// What the module tells of the agent.
#include <qovpub/qov_version.h>

#include "tests/modules/status/status_fixture.h"
#include "tests/support/process_end.h"

namespace qov::test {
namespace {

using nlohmann::json;
using ::testing::MatchesRegex;

json moduleWithId(const json& document, int id) {
  for (const json& module : document["modules"]) {
    if (module["id"] == id) {
      return module;
    }
  }
  ADD_FAILURE() << "no module " << id << " in " << document;
  return {};
}

TEST_F(StatusTest, TellsWhatRunsAndSinceWhen) {
  startsWith({"chatter"});
  StatusClient asking = client();
  const json status = asking.ask({{"request", "status"}});
  EXPECT_EQ(status["version"], QOV_Version());
  EXPECT_EQ(status["process"], "qov_test_agent");
  EXPECT_EQ(status["number"], 7);
  EXPECT_EQ(status["pid"], asking.agent());
  EXPECT_GT(status["uptime"], 0);
  const char* const time = "20[0-9][0-9]-[01][0-9]-[0-3][0-9]T[0-9:]+Z";
  EXPECT_THAT(status["started"].get<std::string>(), MatchesRegex(time));
  EXPECT_EQ(status["configuration"]["file"], agent.root().cfgFile().string());
  EXPECT_THAT(status["configuration"]["modified"].get<std::string>(), MatchesRegex(time));
  EXPECT_EQ(status["log"]["file"], agent.root().logFile().string());
  EXPECT_EQ(status["log"]["level"], 1);
}

TEST_F(StatusTest, TellsWhatTheModulesDo) {
  startsWith({"chatter"});
  EXPECT_TRUE(waitUntil([&] {
    const json chatter = moduleWithId(status(), 1);
    return chatter["workers"] == 2 && chatter["handled"]["count"] > 0 &&
           chatter["queue"]["highestBlocks"] > 0;
  })) << status();
  const json chatter = moduleWithId(status(), 1);
  EXPECT_EQ(chatter["name"], "chatter");
  EXPECT_LE(chatter["busy"], 2);
  EXPECT_EQ(chatter["queue"]["roomBytes"], 16384);
  EXPECT_EQ(chatter["dropped"]["noRoom"], 0);
  EXPECT_EQ(chatter["pending"]["count"], 0);
  EXPECT_EQ(moduleWithId(status(), 250)["name"], "status");
}

TEST_F(StatusTest, ListsTheModules) {
  startsWith({"chatter"});
  const json list = client().ask({{"request", "modules"}});
  EXPECT_EQ(list["modules"].size(), 2u);
  EXPECT_EQ(moduleWithId(list, 1)["name"], "chatter");
}

/// While its destructor waits, for which everybody waits.
TEST_F(StatusTest, ListsAModuleThatHangsInItsEndAsStopping) {
  startsWith({"chatter", "stuck"});
  agent.send(SIGTERM);
  ASSERT_TRUE(agent.waitForFile("lingering"));
  const json list = client().ask({{"request", "modules"}});
  EXPECT_EQ(moduleWithId(list, 43)["state"], "stopping");
  EXPECT_NE(moduleWithId(list, 250)["state"], "stopping");
  EXPECT_EQ(list["modules"].size(), 2u) << list;
  agent.makeFile("go");
  hasEndedInOrder(agent.waitForEnd());
}

TEST_F(StatusTest, TellsThatTheConfigurationHasChangedSinceTheStart) {
  startsWith();
  const json before = status()["configuration"];
  EXPECT_EQ(before["changedSinceStart"], false);
  EXPECT_EQ(before["inForce"], before["modified"]);
  std::filesystem::last_write_time(
      agent.root().cfgFile(),
      std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
  const json after = status()["configuration"];
  EXPECT_EQ(after["changedSinceStart"], true);
  EXPECT_EQ(after["inForce"], before["inForce"]);
  EXPECT_NE(after["modified"], before["modified"]);
}

TEST_F(StatusTest, AChangeWithinTheSecondOfTheStartIsOne) {
  startsWith();
  const auto time = std::filesystem::last_write_time(agent.root().cfgFile());
  std::filesystem::last_write_time(agent.root().cfgFile(), time + std::chrono::nanoseconds(1));
  EXPECT_EQ(status()["configuration"]["changedSinceStart"], true);
}

TEST_F(StatusTest, ServesSeveralRequestsOfOneClient) {
  startsWith();
  StatusClient asking = client();
  asking.send("{\"request\":\"modules\"}\n{\"request\":\"status\"}\n");
  EXPECT_TRUE(asking.receive().contains("modules"));
  EXPECT_TRUE(asking.receive().contains("version"));
  EXPECT_TRUE(asking.ask({{"request", "modules"}}).contains("modules"));
}

TEST_F(StatusTest, ADaemonServesTheSocket) {
  agent.useModules({"state"});
  agent.start({});
  hasExited(agent.waitForEnd(), 0);
  ASSERT_TRUE(waitUntil([&] { return agent.findDaemon(); }));
  EXPECT_EQ(std::to_string(status()["pid"].get<pid_t>()), agent.state("pid"));
  EXPECT_EQ(client().agent(), status()["pid"]);
  agent.send(SIGTERM);
  hasEndedInOrder(agent.waitForDaemonEnd());
  EXPECT_FALSE(std::filesystem::exists(socket()));
}

TEST_F(StatusTest, HasTheIdOfTheConfiguration) {
  configure("ModuleId=77\n");
  startsWith();
  EXPECT_EQ(moduleWithId(status(), 77)["name"], "status");
}

TEST_F(StatusTest, AnIdThatNoModuleMayHaveIsRefusedWithFileAndKey) {
  configure("ModuleId=256\n");
  failsToStart();
  EXPECT_THAT(agent.errors(), ::testing::HasSubstr(agent.root().cfgFile().string() +
                                                   ": [STATUS] ModuleId=256: no number in range"));
}

TEST_F(StatusTest, AKeyThatItDoesNotKnowIsToldInTheLog) {
  configure("Sokcet=/there\nclientseconds=5\n");
  startsWith();
  EXPECT_THAT(agent.log(), ::testing::HasSubstr(agent.root().cfgFile().string() +
                                                ": [STATUS] Sokcet: unknown key, ignored"));
  EXPECT_THAT(agent.log(), ::testing::Not(::testing::HasSubstr("clientseconds")));
}

TEST_F(StatusTest, ItsThreadHasAName) {
  configure("ModuleId=77\n");
  startsWith();
  EXPECT_TRUE(waitUntil([&] { return agent.threadNames().count("m77-status") == 1; }));
}

TEST_F(StatusTest, AUserThatThereIsNotIsRefused) {
  configure("Owner=no such user\n");
  failsToStart();
  EXPECT_THAT(agent.errors(), ::testing::HasSubstr("[STATUS] Owner=no such user: no such name"));
}

}  // namespace
}  // namespace qov::test
