#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "tests/config/device_xml.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/latch.h"
#include "tests/support/sleeping_thread.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

namespace qov::test {
namespace {

constexpr const char* kNothingRead = "CQOV_Exception: can't find Device config!";
constexpr const char* kNoDefaultDevice = "CQOV_Exception: can't find config item! key=default";

class DeviceConfig : public DeviceXmlTest {};

TEST_F(DeviceConfig, FindsTheItemsOfADevice) {
  writeDevices(R"(<Device DeviceDesc="a"><ConfigItem Key="k" Value="v"/>
                  <ConfigItem Key="l" Value="w"/></Device>
                  <Device DeviceDesc="b"><ConfigItem Key="k" Value="x"/></Device>)");
  EXPECT_EQ(find("a", "k"), "v");
  EXPECT_EQ(find("a", "l"), "w");
  EXPECT_EQ(find("b", "k"), "x");
  EXPECT_EQ(log.text(), "");
}

TEST_F(DeviceConfig, FallsBackToTheDeviceDefault) {
  writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="own"/></D>
                  <D DeviceDesc="default"><I Key="k" Value="all"/><I Key="l" Value="l"/></D>)");
  EXPECT_EQ(find("a", "k"), "own");
  EXPECT_EQ(find("a", "l"), "l");
  EXPECT_EQ(find("unknown", "k"), "all");
  EXPECT_EQ(find("default", "k"), "all");
}

TEST_F(DeviceConfig, SaysWhichKeyIsMissing) {
  writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="v"/></D>
                  <D DeviceDesc="default"><I Key="l" Value="w"/></D>)");
  EXPECT_EQ(find("a", "m"), "CQOV_Exception: can't find config item! key=m");
  EXPECT_EQ(find("unknown", "k"), "CQOV_Exception: can't find config item! key=k");
}

TEST_F(DeviceConfig, NamesTheDeviceDefaultWhenThatIsMissing) {
  writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="v"/></D>)");
  EXPECT_EQ(find("unknown", "k"), kNoDefaultDevice);
  EXPECT_EQ(find("a", "m"), kNoDefaultDevice);
}

TEST_F(DeviceConfig, FindsAnItemByAKeyThatTheValueIsWrittenInto) {
  writeDevices(R"(<D DeviceDesc="default"><I Key="k" Value="v"/></D>)");
  std::string text = "k";
  EXPECT_EQ(config().getDeviceItem("a", text, text), "v");
}

TEST_F(DeviceConfig, ListsItemsByKeyAndNotInTheOrderOfTheFile) {
  writeDevices(R"(<D DeviceDesc="a"><I Key="c" Value="1"/><I Key="a" Value="2"/>
                  <I Key="B" Value="3"/></D>)");
  EXPECT_THAT(list("a"), ElementsAre(Pair("B", "3"), Pair("a", "2"), Pair("c", "1")));
  EXPECT_THAT(messages("DBG"), ElementsAre("Parse a from " + file() + "."));
}

TEST_F(DeviceConfig, AppendsToTheListAndLeavesWhatIsThere) {
  writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="v"/></D>)");
  std::list<CIType> items{{"first", "1", "extra"}};
  config().getDeviceItem("a", items);
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items.front().extra, "extra");
  EXPECT_EQ(items.back().key, "k");
}

TEST_F(DeviceConfig, ListsNothingOfAnUnknownDevice) {
  writeDevices(R"(<D DeviceDesc="default"><I Key="k" Value="v"/></D>)");
  EXPECT_THAT(list("a"), IsEmpty());
  EXPECT_THAT(messages("WARN"), IsEmpty());
}

TEST_F(DeviceConfig, IsEmptyWhenTheRootHasItsNameInAnotherCase) {
  write("<agentconfig><D><A DeviceDesc='default'><I Key='k'/></A></D></agentconfig>");
  EXPECT_EQ(find("default", "k"), kNoDefaultDevice);
  EXPECT_THAT(messages("ERR"),
              ElementsAre("Failed to parse, exception is unable to find qov node: agentconfig."));
}

TEST_F(DeviceConfig, IsEmptyWithoutARootElement) {
  write("<!-- nothing -->");
  EXPECT_EQ(find("a", "k"), kNoDefaultDevice);
  EXPECT_THAT(messages("ERR"),
              ElementsAre("Failed to parse, exception is parse root element failed! ."));
}

TEST_F(DeviceConfig, IsEmptyWithoutAChildOfTheRoot) {
  write("<AgentConfig/>");
  EXPECT_EQ(find("a", "k"), kNoDefaultDevice);
  EXPECT_THAT(messages("ERR"), ElementsAre("no DeviceConfig found"));
}

TEST_F(DeviceConfig, KeepsWhatWasStoredUntilMemoryRanOut) {
  writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="v"/><I Key="l" Value="w"/></D>)");
  readAndForget();
  {
    const auto failing = FailingAllocations::ofSize(sizeof(ItemNode), 2);
    config();
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_THAT(list("a"), ElementsAre(Pair("k", "v")));
}

TEST_F(DeviceConfig, ReadsTheFileAgainAfterClose) {
  writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="old"/></D>)");
  EXPECT_EQ(find("a", "k"), "old");
  writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="new"/></D>)");
  EXPECT_EQ(find("a", "k"), "old");
  CQOVXmlConfig::close();
  EXPECT_EQ(find("a", "k"), "new");
}

TEST_F(DeviceConfig, CloseWithoutAConfigurationDoesNothing) {
  CQOVXmlConfig::close();
  CQOVXmlConfig::close();
  EXPECT_EQ(log.text(), "");
}

TEST_F(DeviceConfig, TracesItsOperations) {
  writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="v"/></D>)");
  const auto traced = [](const std::string& name, const std::string& end) {
    return ElementsAre("enter " + name + "...", "leave " + name + ": " + end);
  };
  config();
  EXPECT_THAT(tracesOf([] { CQOVXmlConfig::instance(); }), IsEmpty());
  const std::string value =
      "std::string& CQOVXmlConfig::getDeviceItem(const std::string&, const std::string&, "
      "std::string&)";
  EXPECT_THAT(tracesOf([] { find("a", "k"); }), traced(value, "OK"));
  EXPECT_THAT(tracesOf([] { find("b", "k"); }), traced(value, "OK"));
  EXPECT_THAT(
      tracesOf([] { list("a"); }),
      traced("void CQOVXmlConfig::getDeviceItem(const std::string&, std::list<CIType>&)", "OK"));
  EXPECT_THAT(tracesOf([] { CQOVXmlConfig::close(); }), IsEmpty());
}

TEST_F(DeviceConfig, TracesThatItIsMade) {
  const auto traces = [](const std::string& result) {
    return ElementsAre("enter CQOVXmlConfig::CQOVXmlConfig()...",
                       "enter CQOVXmlParser::CQOVXmlParser(const std::string&)...",
                       "leave CQOVXmlParser::CQOVXmlParser(const std::string&): OK",
                       "enter bool CQOVXmlParser::parse()...",
                       "enter bool CQOVXmlParser::openXmlDoc(TiXmlDocument&)...",
                       "leave bool CQOVXmlParser::openXmlDoc(TiXmlDocument&): OK",
                       "leave bool CQOVXmlParser::parse(): " + result,
                       "leave CQOVXmlConfig::CQOVXmlConfig(): OK");
  };
  writeDevices("");
  EXPECT_THAT(tracesOf([] { config(); }), traces("OK"));
  CQOVXmlConfig::close();
  write("<AgentConfig/>");
  EXPECT_THAT(tracesOf([] { config(); }), traces("NOK"));
  CQOVXmlConfig::close();
  write("<Agent/>");
  EXPECT_EQ(tracesOf([] { config(); }).back(), "leave CQOVXmlConfig::CQOVXmlConfig(): NOK");
}

TEST_F(DeviceConfig, IsTheSameForThreadsThatAskFirst) {
  writeDevices(R"(<D DeviceDesc="default"><I Key="k" Value="v"/></D>)");
  constexpr int kThreads = 8;
  Latch ready;
  std::atomic<CQOVXmlConfig*> configs[kThreads] = {};
  std::vector<std::thread> threads;
  for (auto& found : configs) {
    threads.emplace_back([&] {
      ready.count();
      ready.waitFor(kThreads);
      found = CQOVXmlConfig::instance();
      std::string value;
      EXPECT_EQ(found.load()->getDeviceItem("a", "k", value), "v");
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const auto& found : configs) {
    EXPECT_EQ(found, CQOVXmlConfig::instance());
  }
}

TEST_F(DeviceConfig, IsMadeOnceForThreadsThatAskMeanwhile) {
  constexpr int kThreads = 3;
  std::atomic<pid_t> ids[kThreads] = {};
  CQOVXmlConfig* configs[kThreads] = {};
  std::vector<std::thread> threads;
  meanwhile = [&] {  // the file is missing
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&, i] {
        ids[i] = ::gettid();
        configs[i] = CQOVXmlConfig::instance();
      });
      waitForThread([&] { return ids[i] != 0 && qov::test::sleeps(ids[i]); }, "waits");
    }
    writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="v"/></D>)");
  };
  CQOVXmlConfig* const first = CQOVXmlConfig::instance();
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_THAT(configs, ElementsAre(first, first, first));
  EXPECT_EQ(sleeps.size(), 1u);
}

TEST_F(DeviceConfig, IsNullWithoutMemoryAndMadeByTheNextCall) {
  writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="v"/></D>)");
  readAndForget();
  {
    const auto failing = FailingAllocations::ofObjectsThatGiveNull(sizeof(CQOVXmlConfig));
    errno = 0;
    EXPECT_EQ(CQOVXmlConfig::instance(), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_EQ(find("a", "k"), "v");
}

TEST_F(DeviceConfig, HasNothingToLookInWithoutMemoryForItsParser) {
  writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="v"/></D>)");
  readAndForget();
  {
    const auto failing = FailingAllocations::ofSize(sizeof(CQOVXmlParser));
    config();
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_THAT(messages("ERR"), ElementsAre("Failed to parse, exception is std::bad_alloc."));
  EXPECT_EQ(find("a", "k"), kNothingRead);
  EXPECT_THAT(list("a"), IsEmpty());
  EXPECT_THAT(messages("DBG"), ElementsAre("Parse a from ."));
  EXPECT_THAT(messages("WARN"), ElementsAre("Invalid parameter, pConfig_ is null!"));
}

TEST_F(DeviceConfig, HasNothingToLookInWithoutMemoryForItsMaps) {
  writeDevices(R"(<D DeviceDesc="a"><I Key="k" Value="v"/></D>)");
  readAndForget();
  {
    const auto failing =
        FailingAllocations::ofObjectsThatGiveNull(sizeof(CQOVXmlParser::DeviceMap));
    config();
    EXPECT_TRUE(failing.hasFailed());
  }
  log.clear();
  EXPECT_EQ(find("a", "k"), kNothingRead);
  EXPECT_THAT(list("a"), IsEmpty());
  EXPECT_THAT(messages("DBG"), ElementsAre("Parse a from " + file() + "."));
  EXPECT_THAT(messages("WARN"), ElementsAre("Invalid parameter, pConfig_ is null!"));
}

void configureWithoutAProcessConfiguration(const std::string& root) {
  ::setenv("QOV_ROOT", root.c_str(), 1);
  const ProcessLog log;
  std::string value;
  try {
    CQOVXmlConfig::instance()->getDeviceItem("a", "k", value);
    std::_Exit(1);
  } catch (const CQOV_Exception& exception) {
    const bool saysSo = std::string(exception.what()) == kNothingRead;
    const auto errors = log.messages("ERR");
    std::_Exit(saysSo && errors.size() == 1 &&
                       errors[0] ==
                           "Failed to parse, exception is CQOV_Exception: can't open "
                           "proc config file."
                   ? 0
                   : 2);
  }
}

TEST_F(DeviceConfig, CanBeAskedWithoutAProcessConfiguration) {
  const TemporaryDirectory empty;
  EXPECT_EXIT(configureWithoutAProcessConfiguration(empty.path()), ::testing::ExitedWithCode(0),
              "");
}

}  // namespace
}  // namespace qov::test
