// What `qovctl check` says of the set-ups that a start is tried with, and of good ones.
#include <algorithm>
#include <map>
#include <regex>
#include <sstream>

#include "tests/process/agent_test.h"
#include "tests/process/broken_set_ups.h"
#include "tests/support/sanitizers.h"

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace qov::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kGood =
    "[QOV_GLOBAL]\nPROC_PID=7\n[LOG_CFG]\nSendTerminal=0\nChkInterval=600\nLogFileMaxSize=10240\n"
    "LogFileMaxCnt=3\nLogLevel=2\n";

/// The test agent's set-up, checked.
class CheckTest : public AgentTest {
 protected:
  void checks(std::vector<std::string> options = {"--process", "qov_test_agent"},
              int exitStatus = 0) {
    options.insert(options.begin(), "check");
    agent.run(QOVCTL, options);
    hasExited(agent.waitForEnd(), exitStatus);
    EXPECT_EQ(agent.output(), "");
  }

  void finds(const std::string& text) {
    checks({"--process", "qov_test_agent"}, 2);
    EXPECT_THAT(agent.errors(), HasSubstr(filledIn(text, agent.root())));
  }

  void warns(const std::string& text) {
    checks();
    EXPECT_EQ(agent.errors(), filledIn(text, agent.root()));
  }

  void writesConfig(const std::string& text) { AgentRoot::write(agent.root().cfgFile(), text); }

  void writesDevices(const std::string& text) {
    AgentRoot::write(agent.root().confDirectory() / "qov_test_agent.xml", text);
  }
};

class CheckOfABrokenSetUp : public CheckTest, public ::testing::WithParamInterface<BrokenSetUp> {
 protected:
  /// Whether one of the lines that the start says is there, but for "Failed to ...: " before the
  /// file, and a line's number and "warning: " that the check has behind it.
  bool saysWhatTheStartSays() {
    const std::string found = agent.errors();
    const std::string bare =
        std::regex_replace(found, std::regex("(\\.cfg)?(:[0-9]+)?: (warning: )?"), "$1: ");
    return std::any_of(GetParam().says.begin(), GetParam().says.end(), [&](const auto& line) {
      const std::string text = filledIn(
          std::regex_replace(line, std::regex("^(Failed to [^:]*)?: | before it ran.*"), ""),
          agent.root());
      return found.find(text) != std::string::npos || bare.find(text) != std::string::npos;
    });
  }
};

INSTANTIATE_TEST_SUITE_P(Of, CheckOfABrokenSetUp, ::testing::ValuesIn(brokenSetUps()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(CheckOfABrokenSetUp, SaysWhatAStartWouldSay) {
  const BrokenSetUp& row = GetParam();
  if (row.notAsRoot && ::geteuid() == 0) {
    GTEST_SKIP() << "root may do everything";
  }
  if (row.result == Result::kWarns) {
    agent.useModules({"state"});
  }
  row.breakIt(agent);
  checks({"--process", "qov_test_agent"}, row.check == Check::kProblem ? 2 : 0);
  if (row.check == Check::kProblem || row.check == Check::kWarning) {
    EXPECT_TRUE(saysWhatTheStartSays()) << agent.errors();
    return;
  }
  EXPECT_EQ(agent.errors(), "") << "found without a call of the module";
  const bool isFound = row.check == Check::kWithCreate;
  checks({"--process", "qov_test_agent", "--create"}, isFound ? 2 : 0);
  if (isFound) {
    EXPECT_TRUE(saysWhatTheStartSays()) << agent.errors();
  } else {
    EXPECT_EQ(agent.errors(), "");
  }
}

/// What the tests start with success.
class CheckOfAGoodSetUp : public CheckTest, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Of, CheckOfAGoodSetUp,
                         ::testing::Values("chatter", "other_chatter", "hidden_chatter", "state",
                                           "broken_pipe", "hoarder", "stuck", "memory", "plugged",
                                           "quitter", "lingering", "reactor_user", "crossing",
                                           "named", "configured", "throwing"),
                         [](const auto& module) { return std::string(module.param); });

TEST_P(CheckOfAGoodSetUp, SaysNothing) {
  agent.useModules({GetParam()});
  checks();
  checks({"--process", "qov_test_agent", "--create"});
  EXPECT_EQ(agent.errors(), "");
}

TEST_F(CheckTest, SaysNothingOfAGoodFileWithAllThatMayBeInOne) {
  agent.useModules({"state", "chatter", "other_chatter"});
  writesConfig(
      "; a comment\n\n# another one\r\n  [QOV_GLOBAL] and more\nproc_pid = \" 7\"\r\n[]\n"
      "[LOG_CFG]\nSendTerminal=0\nChkInterval=0\nLogFileMaxSize=0\nLogFileMaxCnt=1\n"
      "[MMT]\nMMT_ADDR=[::1]:19001\n[LOG_CFG]\nLogLevel=5\nLogFold=1\nlogjson=0\n"
      "LogEscape=1\n[A_MODULE/INNER]\nAnything=\nLogLevel=high\n");
  writesDevices(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<AgentConfig><DeviceConfig>\n"
      "<Device DeviceDesc=\"default\"><ConfigItem Key=\"A\" Value=\"1\"/></Device>\n"
      "<Device DeviceDesc=\"router\"><ConfigItem Key=\"A\" Value=\"2\"/></Device>\n"
      "</DeviceConfig></AgentConfig>\n");
  checks();
  EXPECT_EQ(agent.errors(), "");
}

TEST_F(CheckTest, WarnsOfAnUnknownKey) {
  agent.useModules({"state"});
  writesConfig(std::string(kGood) + "\nLoglevels=3\n");
  warns("<conf>qov_test_agent.cfg:10: warning: LOG_CFG/Loglevels: unknown key\n");
}

TEST_F(CheckTest, WarnsOfAKeyThatComesAgain) {
  agent.useModules({"state"});
  writesConfig("[A]\nk=1\n" + std::string(kGood) + "LOGLEVEL=4\n[A]\nk=2\n");
  warns(
      "<conf>qov_test_agent.cfg:2: warning: A/k: ignored, since line 13 has the key, too\n"
      "<conf>qov_test_agent.cfg:10: warning: LOG_CFG/LogLevel: ignored, since line 11 has the "
      "key, too\n");
}

TEST_F(CheckTest, WarnsOfASectionThatIsAlmostTheLibrarys) {
  agent.useModules({"state"});
  writesConfig(std::string(kGood) + "[ log_cfg ]\nLogLevel=1\n");
  warns(
      "<conf>qov_test_agent.cfg:9: warning: section [ log_cfg ] is ignored; the name is LOG_CFG\n");
}

TEST_F(CheckTest, NamesTheLineOfAValue) {
  writesConfig("; one\n\n" + std::string(kGood) +
               "LogLevel=loud\nLogJson=2\n[MMT]\n\nMMT_ADDR=somewhere\n");
  finds(
      "<conf>qov_test_agent.cfg:11: LOG_CFG/LogLevel: \"loud\" is no whole number, 0 is taken\n"
      "<conf>qov_test_agent.cfg:12: LOG_CFG/LogJson: \"2\" is out of range, 1 is taken\n"
      "<conf>qov_test_agent.cfg:15: MMT/MMT_ADDR: \"somewhere\" is not host:port; no endpoint is "
      "taken in its place\n");
}

TEST_F(CheckTest, NamesTheLineOfTheSectionThatLacksAKey) {
  writesConfig("[QOV_GLOBAL]\nPROC_PID=7\n\n[LOG_CFG]\nSendTerminal=0\n");
  finds("<conf>qov_test_agent.cfg:4: LOG_CFG/ChkInterval: there is no such key\n");
}

TEST_F(CheckTest, TellsAllProblemsAtOnceAndCountsThem) {
  writesConfig("[QOV_GLOBAL]\nPROC_PID=x\nName=y\n");
  writesDevices("<AgentConfig/>");
  agent.useModules({"nowhere"});
  finds(
      "<conf>qov_test_agent.cfg:2: QOV_GLOBAL/PROC_PID: \"x\" is no number from 0 to 255; 0 is "
      "taken\n<conf>qov_test_agent.cfg: LOG_CFG: there is no such section\n"
      "<conf>qov_test_agent.cfg:3: warning: QOV_GLOBAL/Name: unknown key\n"
      "<conf>qov_test_agent.xml:1: no DeviceConfig found\n"
      "<conf>qovp_nowhere.mod: none of libqovp_nowhere.so, ");
  EXPECT_THAT(agent.errors(), EndsWith("\nqovctl: 4 problems and 1 warning\n"));
}

TEST_F(CheckTest, FindsWhatTheDeviceConfigurationCannotBe) {
  agent.useModules({"state"});
  for (const auto& [text, found] : std::map<std::string, std::string>{
           {"<AgentConfig>\n<A>\n</B>\n", ":3: column 1: Error reading end tag."},
           {"", ": Error document empty."},
           {"<!-- -->\n", ": parse root element failed! "},
           {"\n\n<Agent/>", ":3: unable to find qov node: Agent"}}) {
    fs::remove(agent.root().path() / "stderr");
    writesDevices(text);
    finds("<conf>qov_test_agent.xml" + found + "\n");
  }
}

TEST_F(CheckTest, WarnsOfWhatIsIgnoredInTheDeviceConfiguration) {
  agent.useModules({"state"});
  writesDevices(
      "<AgentConfig>\n<D>\n<Device DeviceDesc='a' Name='x'>\n<I Key='k' value='1'/>\n"
      "<I Key='k' Value='2'><J/></I>\n</Device>\n<Device>\n<I Key='k'/></Device>\n"
      "<Device DeviceDesc='b'/>\n<Device DeviceDesc='c'><I Value='1'/></Device>\n</D>\n"
      "<D/>\n</AgentConfig>\n");
  const std::string file = "<conf>qov_test_agent.xml:";
  warns(file + "3: warning: unknown attribute Name is ignored\n" + file +
        "4: warning: unknown attribute value is ignored\n" + file +
        "5: warning: ConfigItem is already exist! DeviceDest : a, and ConfigItem : k\n" + file +
        "5: warning: what stands in an item is ignored\n" + file +
        "7: warning: a device without DeviceDesc is ignored\n" + file +
        "9: warning: a device without an item is ignored\n" + file +
        "10: warning: an item without Key gets the key \"default\"\n" + file +
        "12: warning: devices stand in the first element of the root; this one is ignored\n");
}

TEST_F(CheckTest, WarnsOfAnItemThatComesAfterOneWithTheKeyDefault) {
  agent.useModules({"state"});
  writesDevices(
      "<AgentConfig>\n<D>\n<Device DeviceDesc='a'>\n<I Value='1'/>\n<I Value='2'/>\n"
      "<I Key='default' Value='3'/>\n</Device>\n</D>\n</AgentConfig>\n");
  const std::string file = "<conf>qov_test_agent.xml:";
  const std::string twice =
      ": warning: ConfigItem is already exist! DeviceDest : a, and ConfigItem : default\n";
  warns(file + "4: warning: an item without Key gets the key \"default\"\n" + file + "5" + twice +
        file + "6" + twice);
}

TEST_F(CheckTest, SaysNothingOfALogPathThatJustFits) {
  agent.useModules({"state"});
  useLogPathOf(255, agent);
  checks();
  EXPECT_EQ(agent.errors(), "");
}

TEST_F(CheckTest, FindsARootThatADaemonRefuses) {
  agent.useModules({"state"});
  const std::string root = fs::relative(agent.root().path());
  agent.setEnvironment("QOV_ROOT", root);
  checks({"--process", "qov_test_agent"}, 2);
  EXPECT_EQ(agent.errors(),
            root +
                ": the environment variable QOV_ROOT is no absolute path; only a start with -n "
                "takes it\nqovctl: 1 problem and 0 warnings\n");
}

/// A library that does something when it is opened, among others.
class CheckOfAnEarlyLibrary : public CheckTest {
 protected:
  void doesEarly(const std::string& way) {
    agent.setEnvironment("QOV_TEST_EARLY", way);
    agent.useModules({"state", "early", "nowhere"});
  }
};

TEST_F(CheckOfAnEarlyLibrary, OutlivesACrashAndLooksAtTheOthers) {
  doesEarly("abort");
  finds(
      "<conf>qovp_early.mod: the library of module qovp_early: the process that opened it ended "
      "by signal 6 (Aborted)\n<conf>qovp_nowhere.mod: none of ");
  EXPECT_THAT(agent.errors(), Not(HasSubstr("qovp_state")));
}

TEST_F(CheckOfAnEarlyLibrary, OutlivesItsExit) {
  doesEarly("exit");
  finds(
      "<conf>qovp_early.mod: the library of module qovp_early: the process that opened it ended "
      "with exit status 0\n<conf>qovp_nowhere.mod: none of ");
}

TEST_F(CheckOfAnEarlyLibrary, DoesNotWaitForOneThatHangs) {
  agent.setEnvironment("QOV_TEST_EARLY", "hang");
  agent.useModules({"early"});
  checks({"--process", "qov_test_agent", "--timeout", "0.2"}, 2);
  EXPECT_EQ(agent.errors(),
            filledIn("<conf>qovp_early.mod: the library of module qovp_early: the process that "
                     "opens it hangs, for 200 ms now\nqovctl: 1 problem and 0 warnings\n",
                     agent.root()));
}

TEST_F(CheckOfAnEarlyLibrary, DoesNotHearWhatItSays) {
  agent.setEnvironment("QOV_TEST_EARLY", "chatter");
  agent.useModules({"early"});
  checks();
  EXPECT_EQ(agent.errors(), "");
}

TEST_F(CheckOfAnEarlyLibrary, PassesForTheProcess) {
  agent.setEnvironment("QOV_TEST_EARLY", "name");
  agent.useModules({"early"});
  checks();
  EXPECT_EQ(agent.errors(), "");
}

/// Of an environment without "QOV_ROOT", as an operator's shell.
class CheckUnderARoot : public CheckTest {
 protected:
  CheckUnderARoot() {
    agent.setEnvironment("QOV_ROOT", "");
    agent.useModules({"state"});
  }

  fs::path addProcess(const std::string& name, const std::string& config) {
    const fs::path folder = agent.root().path() / "conf" / name;
    fs::create_directory(folder);
    AgentRoot::write(folder / (name + ".cfg"), config);
    AgentRoot::write(folder / "qovp_state.mod", "");
    return folder;
  }
};

TEST_F(CheckUnderARoot, LooksAtTheProcessOfThatName) {
  addProcess("other", "");
  checks({"--root", agent.root().path(), "--process", "qov_test_agent"});
  EXPECT_EQ(agent.errors(), "");
}

TEST_F(CheckUnderARoot, LooksAtEachProcessWithAConfiguration) {
  const fs::path other = addProcess("other", "");
  addProcess("third", kGood);
  fs::create_directory(agent.root().path() / "conf" / "certificates");
  checks({"--root", agent.root().path()}, 2);
  const std::string cfg = (other / "other.cfg").string();
  EXPECT_EQ(agent.errors(), cfg + ": QOV_GLOBAL: there is no such section\n" + cfg +
                                ": LOG_CFG: there is no such section\n"
                                "qovctl: 2 problems and 0 warnings\n");
}

TEST_F(CheckUnderARoot, TakesARelativeRoot) {
  const std::string root = fs::relative(agent.root().path());
  checks({"--root=" + root, "--process=qov_test_agent"});
  EXPECT_EQ(agent.errors(), "");
}

TEST_F(CheckUnderARoot, FindsThatThereIsNoProcess) {
  const std::string conf = (agent.root().path() / "conf").string();
  fs::remove_all(agent.root().confDirectory());
  checks({"--root", agent.root().path()}, 2);
  EXPECT_THAT(agent.errors(), StartsWith(conf + ": there is no <process>/<process>.cfg\n"));
  fs::remove_all(conf);
  checks({"--root", agent.root().path()}, 2);
  EXPECT_THAT(agent.errors(), HasSubstr("\n" + conf + ": No such file or directory\n"));
}

TEST_F(CheckUnderARoot, RefusesANameThatIsAPath) {
  checks({"--process", "../etc"}, 2);
  EXPECT_THAT(agent.errors(), StartsWith("qovctl: --process: no process's name"));
}

/// Nothing but reading.
class CheckLeaves : public CheckTest {
 protected:
  CheckLeaves() { agent.useModules({"state", "chatter"}); }

  /// All that is there and when it has changed, but for what the test itself writes.
  std::string listing() {
    std::vector<fs::path> paths{agent.root().path()};
    for (const auto& entry : fs::recursive_directory_iterator(agent.root().path())) {
      const std::string name = entry.path().filename();
      if (name != "stdout" && name != "stderr") {
        paths.push_back(entry.path());
      }
    }
    std::sort(paths.begin() + 1, paths.end());
    std::ostringstream list;
    for (const fs::path& path : paths) {
      list << path << ' ' << fs::last_write_time(path).time_since_epoch().count() << '\n';
    }
    return list.str();
  }
};

TEST_F(CheckLeaves, AllAsItWas) {
  agent.makeFile("stdout");
  agent.makeFile("stderr");
  const std::string before = listing();
  checks();
  EXPECT_EQ(listing(), before);
  EXPECT_EQ(agent.errors(), "");
}

TEST_F(CheckLeaves, FilesUnopenedForWriting) {
  if (QOV_TEST_ASAN || QOV_TEST_TSAN || !fs::exists("/usr/bin/strace")) {
    GTEST_SKIP() << "needs strace, and no sanitizer, which cannot be traced";
  }
  const std::string calls = (agent.root().path() / "calls").string();
  agent.run("/usr/bin/strace",
            {"-f", "-o", calls, "-e", "trace=%file,socket,bind,connect,ftruncate", QOVCTL, "check",
             "--process", "qov_test_agent"});
  hasExited(agent.waitForEnd(), 0);
  EXPECT_EQ(agent.errors(), "");
  const std::string traced = readFile(calls);
  EXPECT_THAT(traced, HasSubstr("libqovp_chatter.so")) << "the child was not traced";
  for (const char* const change :
       {"O_WRONLY", "O_RDWR", "O_CREAT", "O_TRUNC", "unlink", "rename", "mkdir", "chmod", "chown",
        "symlink", "socket(", "bind(", "connect("}) {
    EXPECT_THAT(traced, Not(HasSubstr(change)));
  }
}

}  // namespace
}  // namespace qov::test
