#include <tinyxml.h>

#include <cerrno>
#include <stdexcept>
#include <thread>

#include "tests/config/device_xml.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/latch.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace qov::test {
namespace {

class DeviceParser : public DeviceXmlTest {
 protected:
  bool parses(const std::string& content) {
    write(content);
    return parser.parse();
  }
  bool parsesDevices(const std::string& devices) {
    writeDevices(devices);
    return parser.parse();
  }

  /// "device/key=value" of everything stored.
  std::vector<std::string> stored() const {
    std::vector<std::string> all;
    for (const auto& [description, items] : *parser.devices()) {
      for (const auto& [key, item] : *items) {
        EXPECT_EQ(item->key, key);
        EXPECT_EQ(item->extra, "");
        all.push_back(description + "/" + key + "=" + item->value);
      }
    }
    return all;
  }

  bool adds(std::string device, std::unique_ptr<CIType> item) {
    const bool added = parser.addDeviceConfig(device, item.get());
    if (added) {
      static_cast<void>(item.release());
    }
    return added;
  }

  CQOVXmlParser parser{file()};
};

TEST_F(DeviceParser, StoresEveryItemOfEveryDevice) {
  EXPECT_TRUE(parsesDevices(R"(<Device DeviceDesc="a"><ConfigItem Key="k" Value="v"/>
                               <ConfigItem Key="l" Value="w"/></Device>
                               <Device DeviceDesc="b"><ConfigItem Key="k" Value="x"/></Device>)"));
  EXPECT_THAT(stored(), ElementsAre("a/k=v", "a/l=w", "b/k=x"));
  EXPECT_EQ(log.text(), "");
}

TEST_F(DeviceParser, TakesADefaultForEachAttributeThatIsMissing) {
  EXPECT_TRUE(
      parsesDevices("<D DeviceDesc='a'><I/></D><D DeviceDesc='b'><I Key='k'/></D>"
                    "<D DeviceDesc='c'><I Value='v'/></D>"));
  EXPECT_THAT(stored(), ElementsAre("a/default=default", "b/k=default", "c/default=v"));
}

TEST_F(DeviceParser, TakesEmptyAttributesAsTheyAre) {
  EXPECT_TRUE(parsesDevices("<D DeviceDesc=''><I Key='' Value=''/></D>"));
  EXPECT_THAT(stored(), ElementsAre("/="));
}

TEST_F(DeviceParser, ComparesAttributeNamesExactly) {
  EXPECT_TRUE(
      parsesDevices("<D DeviceDesc='a'><I key='x' KEY='y' Value2='z' Other='o'/></D>"
                    "<D devicedesc='b'><I Key='k'/></D>"));
  EXPECT_THAT(stored(), ElementsAre("a/default=default"));
}

TEST_F(DeviceParser, TakesAttributesInAnyOrderAndElementsOfAnyName) {
  EXPECT_TRUE(
      parses("<AgentConfig><x><y DeviceDesc='a'><z Value='v' Key='k'/></y></x>"
             "</AgentConfig>"));
  EXPECT_THAT(stored(), ElementsAre("a/k=v"));
}

TEST_F(DeviceParser, NeverReadsText) {
  EXPECT_TRUE(
      parses("<AgentConfig>text<D>text<A DeviceDesc='a'>text<I Key='k'>text</I>text</A>"
             "</D></AgentConfig>"));
  EXPECT_THAT(stored(), ElementsAre("a/k=default"));
}

TEST_F(DeviceParser, SkipsDevicesWithoutDescriptionOrItemsInSilence) {
  EXPECT_TRUE(
      parsesDevices("<D><I Key='k'/></D><D DeviceDesc='a'/><D DeviceDesc='b'>text</D>"
                    "<D DeviceDesc='c'><I Key='k'/></D>"));
  EXPECT_THAT(stored(), ElementsAre("c/k=default"));
  EXPECT_EQ(log.text(), "");
}

TEST_F(DeviceParser, ReadsTheFirstChildOfTheRootOnly) {
  EXPECT_TRUE(
      parses("<AgentConfig><!-- c -->"
             "<DeviceConfig><D DeviceDesc='a'><I Key='k'/></D></DeviceConfig>"
             "<DeviceConfig><D DeviceDesc='b'><I Key='k'/></D></DeviceConfig>"
             "</AgentConfig>"));
  EXPECT_THAT(stored(), ElementsAre("a/k=default"));
}

TEST_F(DeviceParser, KeepsTheFirstItemOfAKeyAndWarnsOnce) {
  EXPECT_TRUE(
      parsesDevices("<D DeviceDesc='a'><I Key='A' Value='1'/><I Key='A' Value='2'/></D>"
                    "<D DeviceDesc='b'><I Key='A' Value='3'/></D>"));
  EXPECT_THAT(stored(), ElementsAre("a/A=1", "b/A=3"));
  EXPECT_THAT(messages("WARN"),
              ElementsAre("ConfigItem is already exist! DeviceDest : a, and ConfigItem : A"));
  // The text has a line feed of its own.
  EXPECT_THAT(log.text(), ::testing::HasSubstr("ConfigItem : A\n\n"));
}

TEST_F(DeviceParser, ContinuesADeviceThatComesAgain) {
  EXPECT_TRUE(
      parsesDevices("<D DeviceDesc='a'><I Key='k' Value='1'/></D>"
                    "<D DeviceDesc='a'><I Key='l' Value='2'/><I Key='k' Value='3'/></D>"));
  EXPECT_THAT(stored(), ElementsAre("a/k=1", "a/l=2"));
}

TEST_F(DeviceParser, ReadsNothingWithoutAFileName) {
  CQOVXmlParser nameless("");
  EXPECT_FALSE(nameless.parse());
  EXPECT_EQ(log.text(), "");
}

TEST_F(DeviceParser, ReadsNothingWithoutAChildOfTheRoot) {
  EXPECT_FALSE(parses("<AgentConfig>text<!-- c --></AgentConfig>"));
  EXPECT_THAT(messages("ERR"), ElementsAre("no DeviceConfig found"));
}

TEST_F(DeviceParser, HasNoErrorWithoutADevice) {
  EXPECT_TRUE(parses("<AgentConfig><DeviceConfig/></AgentConfig>"));
  EXPECT_THAT(stored(), IsEmpty());
  EXPECT_EQ(log.text(), "");
}

TEST_F(DeviceParser, ThrowsForARootOfAnotherName) {
  try {
    parses("<Agent/>");
    FAIL() << "accepted";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "unable to find qov node: Agent");
  }
}

TEST_F(DeviceParser, ThrowsForAFileWithoutARoot) {
  try {
    parses("<?xml version='1.0'?>");
    FAIL() << "accepted";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "parse root element failed! ");
  }
}

TEST_F(DeviceParser, HasNothingToDoForANullItem) {
  EXPECT_TRUE(parser.parseConfigItem("a", nullptr));
  EXPECT_THAT(*parser.devices(), IsEmpty());
}

TEST_F(DeviceParser, TakesANullDescriptionForAnEmptyOne) {
  TiXmlDocument document;
  document.Parse("<D><I Key='k' Value='v'/></D>");
  EXPECT_TRUE(parser.parseConfigItem(nullptr, document.RootElement()->FirstChildElement()));
  EXPECT_THAT(stored(), ElementsAre("/k=v"));
}

TEST_F(DeviceParser, RefusesToAddANullItem) {
  EXPECT_FALSE(adds("a", nullptr));
  EXPECT_THAT(messages("ERR"), ElementsAre("Invalid parameter, pDevCIT is null!"));
  EXPECT_THAT(*parser.devices(), IsEmpty());
}

TEST_F(DeviceParser, LeavesAnItemOfAKnownKeyToItsCaller) {
  std::string device = "a";
  ASSERT_TRUE(adds(device, std::make_unique<CIType>(CIType{"k", "1", ""})));
  CIType mine{"k", "2", ""};  // freeing it would not pass
  EXPECT_TRUE(parser.addDeviceConfig(device, &mine));
  EXPECT_EQ(mine.value, "2");
  EXPECT_THAT(stored(), ElementsAre("a/k=1"));
}

TEST_F(DeviceParser, AddsNothingWithoutItsMaps) {
  for (int failing = 0; failing < 3; ++failing) {
    const std::size_t sizes[] = {sizeof(CQOVXmlParser::DeviceMap), sizeof(CQOVXmlParser::DeviceMap),
                                 2 * sizeof(void*)};
    std::unique_ptr<CQOVXmlParser> bare;
    {
      const auto refused = FailingAllocations::ofSize(sizes[failing], failing == 1 ? 1 : 0);
      errno = 0;
      bare = std::make_unique<CQOVXmlParser>(file());
      EXPECT_EQ(errno, ENOMEM);
      EXPECT_TRUE(refused.hasFailed());
    }
    EXPECT_EQ(bare->devices(), nullptr);
    log.clear();
    std::string device = "a";
    CIType item;
    EXPECT_FALSE(bare->addDeviceConfig(device, &item));
    EXPECT_FALSE(bare->addDeviceConfig(device, nullptr));
    EXPECT_THAT(messages("WARN"), ElementsAre("Invalid parameter, pConfig_ is null!",
                                              "Invalid parameter, pConfig_ is null!"));
  }
}

TEST_F(DeviceParser, StopsAtAnItemThatItHasNoMemoryFor) {
  TiXmlDocument document;
  document.Parse("<D><I Key='k' Value='1'/><I Key='l' Value='2'/><I Key='m' Value='3'/></D>");
  {
    const auto failing = FailingAllocations::ofSize(sizeof(CIType), 1);
    errno = 0;
    EXPECT_FALSE(parser.parseConfigItem("a", document.RootElement()->FirstChildElement()));
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_THAT(stored(), ElementsAre("a/k=1"));
  EXPECT_THAT(messages("ERR"), ElementsAre("Invalid parameter, pDevCIT is null!",
                                           "Failed to parse config item, allocate memory failed."));
}

TEST_F(DeviceParser, StopsAtADeviceThatItHasNoMemoryToStore) {
  TiXmlDocument document;
  document.Parse("<D><I Key='k' Value='1'/><I Key='l' Value='2'/></D>");
  for (const long successes : {0L, 1L, 2L}) {  // first the item's node, then the device's
    CQOVXmlParser fresh(file());
    log.clear();
    const auto failing = FailingAllocations::ofSize(sizeof(ItemNode), successes);
    errno = 0;
    EXPECT_FALSE(fresh.parseConfigItem("a", document.RootElement()->FirstChildElement()));
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(failing.hasFailed());
    EXPECT_THAT(messages("ERR"),
                ElementsAre("Failed to parse config item, allocate memory failed."));
    EXPECT_EQ(fresh.devices()->size(), successes == 2 ? 1u : 0u);
  }
}

TEST_F(DeviceParser, StopsAtWhicheverAllocationFails) {
  const std::string text(100, 'x');
  TiXmlDocument document;
  document.Parse(
      ("<D><I Key='k" + text + "' Value='" + text + "'/><I Key='l" + text + "'/></D>").c_str());
  TiXmlElement* const items = document.RootElement()->FirstChildElement();
  bool failed = true;
  long successes = 0;
  for (; failed; ++successes) {
    CQOVXmlParser fresh(file());
    log.clear();
    errno = 0;
    bool parsed = false;
    {
      const FailingAllocations failing(successes, 1);
      parsed = fresh.parseConfigItem(text.c_str(), items);
      failed = failing.hasFailed();
    }
    EXPECT_EQ(parsed, !failed) << successes;
    EXPECT_EQ(errno, failed ? ENOMEM : 0) << successes;
    EXPECT_EQ(messages("ERR").empty(), parsed) << successes;
  }
  EXPECT_GT(successes, 5);
}

TEST_F(DeviceParser, TakesItemsFromSeveralThreads) {
  constexpr int kThreads = 4;
  constexpr int kItems = 2000;
  Latch ready;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      std::string elements;
      for (int i = 0; i < kItems; ++i) {
        elements += "<I Key='" + std::to_string(i * kThreads + thread) + "'/>";
      }
      TiXmlDocument document;
      document.Parse(("<D>" + elements + "</D>").c_str());
      ready.count();
      ready.waitFor(kThreads);
      EXPECT_TRUE(parser.parseConfigItem("a", document.RootElement()->FirstChildElement()));
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_THAT(stored(), ::testing::SizeIs(kThreads * kItems));
}

TEST_F(DeviceParser, TellsThatADeviceCouldNotBeStored) {
  writeDevices(
      "<D DeviceDesc='a'><I Key='k'/></D><D DeviceDesc='b'><I Key='k'/></D>"
      "<D DeviceDesc='c'><I Key='k'/></D>");
  const auto failing = FailingAllocations::ofSize(sizeof(ItemNode), 2);
  EXPECT_FALSE(parser.parse());
  EXPECT_THAT(stored(), ElementsAre("a/k=default"));
}

TEST_F(DeviceParser, TracesItsOperations) {
  writeDevices("<D DeviceDesc='a'><I Key='k'/></D>");
  EXPECT_THAT(tracesOf([] {
                CQOVXmlParser traced(file());
                traced.parse();
              }),
              ElementsAre("enter CQOVXmlParser::CQOVXmlParser(const std::string&)...",
                          "leave CQOVXmlParser::CQOVXmlParser(const std::string&): OK",
                          "enter bool CQOVXmlParser::parse()...",
                          "enter bool CQOVXmlParser::openXmlDoc(TiXmlDocument&)...",
                          "leave bool CQOVXmlParser::openXmlDoc(TiXmlDocument&): OK",
                          "enter bool CQOVXmlParser::parseConfigItem(const char*, "
                          "TiXmlElement*)...",
                          "enter bool CQOVXmlParser::addDeviceConfig(std::string&, CIType*)...",
                          "leave bool CQOVXmlParser::addDeviceConfig(std::string&, CIType*): OK",
                          "leave bool CQOVXmlParser::parseConfigItem(const char*, "
                          "TiXmlElement*): OK",
                          "leave bool CQOVXmlParser::parse(): OK"));
}

TEST_F(DeviceParser, LeavesWithNokWhereItWarns) {
  TiXmlDocument document;
  EXPECT_EQ(tracesOf([&] { parser.openXmlDoc(document); }).back(),
            "leave bool CQOVXmlParser::openXmlDoc(TiXmlDocument&): NOK");
  document.Parse("<D><I/></D>");
  EXPECT_EQ(tracesOf([&] {
              const auto failing = FailingAllocations::ofSize(sizeof(ItemNode));
              parser.parseConfigItem("a", document.RootElement()->FirstChildElement());
            }).back(),
            "leave bool CQOVXmlParser::parseConfigItem(const char*, TiXmlElement*): NOK");
  EXPECT_THAT(tracesOf([this] { adds("a", nullptr); }),
              ElementsAre("enter bool CQOVXmlParser::addDeviceConfig(std::string&, CIType*)...",
                          "leave bool CQOVXmlParser::addDeviceConfig(std::string&, CIType*): NOK"));
}

}  // namespace
}  // namespace qov::test
