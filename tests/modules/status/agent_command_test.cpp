// qovctl asks an agent.
#include <unistd.h>

#include <filesystem>

#include "tests/modules/status/status_fixture.h"
#include "tests/tools/qovctl_fixture.h"

namespace qov::test {
namespace {

using nlohmann::json;

class AgentCommands : public StatusTest {
 protected:
  QovctlRun run(std::vector<std::string> words) {
    words.insert(words.begin(), "agent");
    words.insert(words.end(), {"--timeout", "60"});
    return Qovctl().run(words);
  }
  QovctlRun runHere(std::vector<std::string> words) {
    words.insert(words.end(), {"--root", agent.root().path()});
    return run(words);
  }
  /// What a check says is `text`, or of a problem has it.
  void check(int exitStatus, const std::string& text, std::vector<std::string> options = {}) {
    options.insert(options.begin(), {"check", "--root", agent.root().path()});
    agent.run(QOVCTL, options);
    hasExited(agent.waitForEnd(), exitStatus);
    if (exitStatus == 0) {
      EXPECT_EQ(agent.errors(), text);
    } else {
      EXPECT_THAT(agent.errors(), HasSubstr(text));
    }
  }
  json runJson(std::vector<std::string> words) {
    words.emplace_back("--json");
    const QovctlRun ran = runHere(words);
    EXPECT_EQ(ran.status, 0) << ran.err;
    return json::parse(ran.out);
  }
};

TEST_F(AgentCommands, StatusShowsTheAgentAndItsModules) {
  startsWith({"chatter"});
  const pid_t pid = client().agent();
  const QovctlRun ran = runHere({"status"});
  EXPECT_EQ(ran.status, 0) << ran.err;
  inOrder(ran.out,
          {"process ", "qov_test_agent, number 7, pid " + std::to_string(pid) + "\n", "\nversion ",
           "\nup ", "\nconfiguration ", "\nlog ", ", level 1\n", "\nid ", "\n1 ", "\n250 "});
}

TEST_F(AgentCommands, StatusIsToldAsJson) {
  startsWith();
  EXPECT_EQ(runJson({"status"})["log"]["level"], 1);
}

TEST_F(AgentCommands, TheProcessOrTheSocketSaysWhichAgent) {
  startsWith();
  EXPECT_EQ(runHere({"--process", "qov_test_agent", "status"}).status, 0);
  EXPECT_EQ(run({"--socket", socket(), "status"}).status, 0);
}

TEST_F(AgentCommands, ASocketOfTheConfigurationIsFound) {
  configure("Socket=" + (agent.root().path() / "there").string() + "\n");
  startsWith();
  EXPECT_EQ(runHere({"status"}).status, 0);
}

TEST_F(AgentCommands, OfSeveralAgentsOneHasToBeNamed) {
  startsWith();
  writeFile(agent.root().path() / "conf" / "other" / "other.cfg", "");
  const QovctlRun ran = runHere({"status"});
  EXPECT_EQ(ran.status, 2);
  EXPECT_THAT(ran.err, HasSubstr("--process says which"));
}

TEST_F(AgentCommands, WithoutARootItIsSaidHowToNameOne) {
  const QovctlRun ran = run({"status"});
  EXPECT_EQ(ran.status, 2);
  EXPECT_THAT(ran.err,
              HasSubstr("no agent is named: --root, --socket or QOV_ROOT says where it is"));
}

TEST_F(AgentCommands, SetAndTellTheLevelOfTheLog) {
  configure("", 2);
  startsWith({"chatter"});
  EXPECT_EQ(runHere({"log-level"}).out, "2\n");
  EXPECT_EQ(runHere({"log-level", "1"}).out, "1\n");
  EXPECT_TRUE(agent.waitForLog(kDebugLine));
  EXPECT_EQ(runHere({"log-level", "6"}).status, 2);
}

TEST_F(AgentCommands, HaveTheLogConfiguredAnew) {
  startsWith();
  const QovctlRun ran = runHere({"reload"});
  EXPECT_EQ(ran.status, 0) << ran.err;
  EXPECT_TRUE(agent.waitForLog(kReloaded));
}

TEST_F(AgentCommands, ListTheModules) {
  startsWith({"chatter"});
  inOrder(runHere({"module", "list"}).out, {"id", "\n1 ", "chatter", "\n250 ", "status"});
  EXPECT_EQ(runJson({"module", "list"})["modules"].size(), 2u);
}

TEST_F(AgentCommands, PendingNamesTheModulesThatWaitForEachOther) {
  startsWith({"asking", "asked"});
  EXPECT_TRUE(waitUntil([&] { return runJson({"pending"})["circles"].size() == 1; }));
  inOrder(
      runHere({"pending"}).out,
      {"request  from ", "\n1001 ", " 21 asked ", "handler  in ", "\n1000 ", "21 asked, request",
       "modules wait for each other: 20 asking -> 21 asked -> 20 asking\n"});
}

TEST_F(AgentCommands, SlowShowsHowLongHandlersTake) {
  startsWith({"chatter"});
  EXPECT_TRUE(waitUntil([&] { return runJson({"slow"})["handlers"].size() == 1; }));
  inOrder(runHere({"slow"}).out, {"handler  in ", "count", "99% within", "\n0 ", "1 chatter"});
}

TEST_F(AgentCommands, TopPrintsOneScreenWithWhatIsHandledPerSecond) {
  startsWith({"chatter"});
  EXPECT_TRUE(waitUntil([&] {
    const json document = runJson({"top", "--once", "--interval", "0.1"});
    return document["status"]["modules"][0]["handledPerSecond"] > 0;
  }));
  const QovctlRun ran = runHere({"top", "--once", "--interval", "0.1"});
  EXPECT_EQ(ran.status, 0) << ran.err;
  inOrder(ran.out,
          {"qov_test_agent  pid ", "  up ", "  log level 1\nbusy ", "\n\nid ",
           " handled/s  pending ", "\n1    chatter ", "\n250  status ", "\n\nslowest  in "});
  EXPECT_NE(ran.out.find(" 1 chatter ", ran.out.find("\n\nslowest  in ")), std::string::npos)
      << ran.out;
}

TEST_F(AgentCommands, TopPrintsWhoWaitsForWhom) {
  startsWith({"asking", "asked"});
  const std::vector<std::string> top{"top", "--once", "--interval", "0.1"};
  EXPECT_TRUE(waitUntil([&] { return runJson(top)["pending"]["circles"].size() == 1; }));
  inOrder(runHere(top).out,
          {"\n\nmodules that wait for each other\n20 asking -> 21 asked -> 20 asking\n",
           "\n\nrequest  from ", "\n1002 ", "\n\nrunning  in ", "\n1000 "});
}

TEST_F(AgentCommands, TopNeedsATerminalOrToBeToldOtherwise) {
  startsWith();
  const QovctlRun ran = runHere({"top"});
  EXPECT_EQ(ran.status, 2);
  EXPECT_EQ(ran.err,
            "qovctl: standard input or output is no terminal; --once prints one screen without\n");
  EXPECT_EQ(runHere({"top", "--json"}).err, "qovctl: --json needs --once beside it\n");
  EXPECT_EQ(runHere({"top", "--once", "--interval", "0.09"}).status, 2);
}

TEST_F(AgentCommands, PrintTheMetrics) {
  startsWith();
  const QovctlRun ran = runHere({"metrics"});
  EXPECT_EQ(ran.status, 0) << ran.err;
  inOrder(ran.out, {"# TYPE qov_agent info\n", "\nqov_module_workers{", "\n# EOF\n"});
  EXPECT_EQ(runJson({"metrics"}).size(), 1u);
}

TEST_F(AgentCommands, ACheckThatMakesTheModulesFindsWhatTheirKeysCannotMean) {
  configure("MetricsFile=/there/agent.prom\nMetricsSeconds=3600\n");
  check(0, "", {"--create"});
  configure("MetricsFile=/there/agent.prom\nMetricsSeconds=3601\n");
  check(2, "MetricsSeconds=3601: no number in range", {"--create"});
}

TEST_F(AgentCommands, ACheckKnowsTheKeysOfTheModule) {
  configure(
      "ModuleId=250\nsocket=/there/s\nMode=0660\nOwner=0\nGroup=0\nClientSeconds=10\n"
      "MetricsFile=/there/agent.prom\nMetricsSeconds=15\n");
  check(0, "");
}

TEST_F(AgentCommands, ACheckWarnsOfWhatTheModuleIgnores) {
  configure("Sokcet=/there/s\nMode=0600\nmode=0660\n[status ]\nMode=0600\n");
  const std::string file = agent.root().cfgFile().string() + ":";
  check(0, file + "10: warning: STATUS/Sokcet: unknown key\n" + file +
               "11: warning: STATUS/Mode: ignored, since line 12 has the key, too\n" + file +
               "13: warning: section [status ] is ignored; the name is STATUS\n");
}

TEST_F(AgentCommands, ACheckWarnsOfKeysThatNoLoadedModuleReads) {
  std::filesystem::remove(agent.root().confDirectory() / "qovstatus.mod");
  agent.useModules({"state"});
  configure("Mode=0600\nAnother=1\n[status ]\nMode=0600\n");
  check(0, agent.root().cfgFile().string() +
               ":10: warning: STATUS/Mode: not read by qovstatus, which has no marker\n");
}

TEST_F(AgentCommands, ACheckThatCannotSeeTheModulesDoesNotKnowWhatTheyRead) {
  if (::geteuid() == 0) {
    GTEST_SKIP() << "root may do everything";
  }
  namespace fs = std::filesystem;
  const fs::path folder = agent.root().confDirectory();
  configure("Mode=0600\n");
  fs::permissions(folder, fs::perms::owner_exec);
  agent.run(QOVCTL, {"check", "--root", agent.root().path(), "--process", "qov_test_agent"});
  hasExited(agent.waitForEnd(), 2);
  fs::permissions(folder, fs::perms::owner_all);
  EXPECT_EQ(agent.errors(),
            folder.string() + "/: Permission denied\nqovctl: 1 problem and 0 warnings\n");
}

TEST_F(AgentCommands, WithoutAnAgentThereIsNoConnection) {
  const QovctlRun ran = runHere({"status"});
  EXPECT_EQ(ran.status, 3);
  EXPECT_THAT(ran.err, HasSubstr(socket().string() + ": no connection: No such file"));
  EXPECT_THAT(ran.err, HasSubstr("; no agent runs, or it lacks the module qovstatus\n"));
}

TEST_F(AgentCommands, AnAgentThatStandsStillIsWaitedForInVain) {
  startsWith();
  agent.send(SIGSTOP);
  ASSERT_TRUE(agent.waitForStop());
  const QovctlRun ran = Qovctl().run({"agent", "--socket", socket(), "--timeout", "0.1", "status"});
  EXPECT_EQ(ran.status, 4);
  EXPECT_THAT(ran.err, HasSubstr("no answer in time"));
  agent.send(SIGCONT);
  stopsInOrder();
}

}  // namespace
}  // namespace qov::test
