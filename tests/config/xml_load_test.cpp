// Which files are loaded, and what happens to those that are not.
#include <malloc.h>
#include <sys/stat.h>
#include <tinyxml.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <regex>

#include "config/xml/qov_xml_depth.h"
#include "tests/config/device_xml.h"
#include "tests/support/failing_allocations.h"

using ::testing::ElementsAre;
using ::testing::SizeIs;

namespace qov::test {
namespace {

constexpr std::chrono::seconds kSleep{10};

std::string nested(int depth) {
  std::string text = "<AgentConfig>";
  for (int i = 1; i < depth; ++i) {
    text += "<a>";
  }
  for (int i = 1; i < depth; ++i) {
    text += "</a>";
  }
  return text + "</AgentConfig>";
}

std::string withAttributes(int count) {
  std::string text = "<AgentConfig><C><D DeviceDesc='a'><I";
  for (int i = 0; i < count; ++i) {
    text += " a" + std::to_string(i) + "=''";
  }
  return text + "/></D></C></AgentConfig>";
}

class DeviceFile : public DeviceXmlTest {
 protected:
  bool opens() { return parser.openXmlDoc(document); }

  /// Three attempts, each with `reason` as what stands against the file, and a sleep behind it.
  void isRefused(const std::string& reason) {
    std::vector<std::string> toldBeforeSleep;
    meanwhile = [&] { toldBeforeSleep.push_back(told()); };
    EXPECT_FALSE(opens());
    const std::string failure = "Failed to open " + file();
    const std::string attempt = "WARN " + refusal(reason) + "\nERR " + failure + ".\n";
    EXPECT_THAT(toldBeforeSleep, ElementsAre(attempt, attempt, attempt));
    EXPECT_EQ(told(), "ERR " + failure + ", try 3 times.\n");
    EXPECT_THAT(sleeps, ElementsAre(kSleep, kSleep, kSleep));
  }

  /// What has been logged since the last call: a line for each tag and message.
  std::string told() {
    static const std::regex kFields(R"((?:\[[^\]]*\]){2}\[(\w+)\](?:\[[^\]]*\]){4} )");
    const std::string lines = std::regex_replace(log.text(), kFields, "$1 ");
    log.clear();
    return lines;
  }

  static std::string refusal(const std::string& reason) {
    return "Refused " + file() + ": " + reason;
  }

  /// What is allocated to read the file into.
  static std::size_t memoryForFile() {
    return std::filesystem::file_size(file()) + kXmlPadding + 1;
  }
  /// Makes a file so large that nothing else allocates as much.
  static constexpr std::size_t kDistinctSize = 100000;

  CQOVXmlParser parser{file()};
  TiXmlDocument document;
};

TEST_F(DeviceFile, IsLoadedAtOnce) {
  writeDevices("");
  EXPECT_TRUE(opens());
  EXPECT_THAT(sleeps, SizeIs(0));
  EXPECT_EQ(log.text(), "");
}

TEST_F(DeviceFile, ThatIsMissingIsTriedThreeTimes) {
  isRefused("No such file or directory");
}

TEST_F(DeviceFile, IsLoadedByTheAttemptThatFindsIt) {
  meanwhile = [this] {
    if (sleeps.size() == 2) {
      writeDevices("");
    }
  };
  EXPECT_TRUE(opens());
  EXPECT_THAT(sleeps, ElementsAre(kSleep, kSleep));
  EXPECT_THAT(messages("ERR"), SizeIs(2));
}

TEST_F(DeviceFile, ThatThereIsNoMemoryForIsRefused) {
  writeDevices(std::string(kDistinctSize, ' '));
  const auto failing = FailingAllocations::ofSize(memoryForFile(), 0, 3);
  isRefused("out of memory");
}

TEST_F(DeviceFile, ThatBecomesShorterWhileItIsReadIsReadAgain) {
  const std::string content = "<AgentConfig/>";
  write(content + std::string(kDistinctSize, ' '));
  const BeforeAllocation reading(memoryForFile(),
                                 [&] { std::filesystem::resize_file(file(), content.size()); });
  EXPECT_TRUE(opens());
  EXPECT_THAT(messages("WARN"), ElementsAre(refusal("changed while it was read")));
}

TEST_F(DeviceFile, GivesTheDocumentItsName) {
  writeDevices("");
  ASSERT_TRUE(opens());
  EXPECT_EQ(document.Value(), file());
}

TEST_F(DeviceFile, IsLoadedWithoutWhatAnAttemptBeforeHasRead) {
  write("<AgentConfig><Old/>");
  meanwhile = [] { write("<AgentConfig><New/></AgentConfig>"); };
  ASSERT_TRUE(opens());
  EXPECT_STREQ(document.RootElement()->FirstChildElement()->Value(), "New");
  EXPECT_EQ(document.RootElement()->NextSiblingElement(), nullptr);
}

TEST_F(DeviceFile, SleepsOnAfterASignal) {
  constexpr std::chrono::seconds kLeft{4};
  std::vector<std::chrono::nanoseconds> slept;
  const InsteadOfSleeping interrupted([&](std::chrono::nanoseconds time) {
    slept.push_back(time);
    return slept.size() == 1 ? std::chrono::nanoseconds(kLeft) : std::chrono::nanoseconds(0);
  });
  EXPECT_FALSE(opens());
  EXPECT_THAT(slept, ElementsAre(kSleep, kLeft, kSleep, kSleep));
}

TEST_F(DeviceFile, ThatIsMalformedIsRefusedWithTheLine) {
  write("<AgentConfig>\n<a>\n</b>\n</AgentConfig>");
  isRefused("line 3, column 1: Error reading end tag.");
}

TEST_F(DeviceFile, ThatIsEmptyIsRefused) {
  write("");
  isRefused("Error document empty.");
}

TEST_F(DeviceFile, ThatIsADirectoryIsRefused) {
  std::filesystem::create_directory(file());
  isRefused("not a regular file");
}

TEST_F(DeviceFile, ThatIsAPipeWithoutAWriterIsRefusedAtOnce) {
  ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
  isRefused("not a regular file");
}

TEST_F(DeviceFile, ThatMayNotBeReadIsRefused) {
  if (::geteuid() == 0) {
    GTEST_SKIP() << "root may read every file";
  }
  writeDevices("");
  ASSERT_EQ(::chmod(file().c_str(), 0), 0);
  isRefused("Permission denied");
}

TEST_F(DeviceFile, ThatIsTooLargeIsRefusedWithoutBeingRead) {
  constexpr std::size_t kMost = 64 * 1024 * 1024;
  writeDevices("");
  std::filesystem::resize_file(file(), kMost + 1);
  isRefused("larger than 67108864 bytes");
}

TEST_F(DeviceFile, OfTheGreatestSizeIsLoaded) {
  constexpr std::size_t kMost = 64 * 1024 * 1024;
  writeDevices("");
  std::filesystem::resize_file(file(), kMost);  // zero bytes, which end the text
  EXPECT_TRUE(opens());
}

TEST_F(DeviceFile, OfAHundredElementsInsideOneAnotherIsLoaded) {
  write(nested(100));
  EXPECT_TRUE(opens());
}

TEST_F(DeviceFile, OfOneElementMoreInsideOneAnotherIsRefused) {
  write(nested(101));
  isRefused("elements nest deeper than 100");
}

TEST_F(DeviceFile, OfAMillionElementsInsideOneAnotherIsRefused) {
  write(nested(1000000));
  isRefused("elements nest deeper than 100");
}

TEST_F(DeviceFile, OfAHundredAttributesInOneElementIsLoaded) {
  write(withAttributes(100));
  EXPECT_TRUE(opens());
}

TEST_F(DeviceFile, OfOneAttributeMoreInOneElementIsRefused) {
  write(withAttributes(101));
  isRefused("an element has more than 100 attributes");
}

TEST_F(DeviceFile, OfAMillionAttributesInOneElementIsRefused) {
  write(withAttributes(1000000));
  isRefused("an element has more than 100 attributes");
}

TEST_F(DeviceFile, OfManyLatin1LettersIsLoaded) {
  std::string items = "<D DeviceDesc='a'>";
  for (int i = 0; i < 101; ++i) {
    items += "<I Key='Qualit\xE9' Value='>5'/>";
  }
  write("<?xml version='1.0' encoding='ISO-8859-1'?><AgentConfig><C>" + items +
        "</D></C></AgentConfig>");
  EXPECT_TRUE(opens());
}

/// A broken character has TinyXML step over what follows, be it the end of the file.
TEST_F(DeviceFile, IsReadUpToAZeroByteThatABrokenCharacterSwallows) {
  write("\xEF\xBB\xBF<AgentConfig a='\xC3" + std::string(1, '\0') + "'>" + nested(1000000));
  isRefused("line 1, column 14: Error parsing Element.");
}

/// Fills memory that is allocated with a byte, where malloc() is the C library's own.
class FilledMemory {
 public:
  explicit FilledMemory(unsigned char byte) { ::mallopt(M_PERTURB, byte ^ 0xFF); }
  ~FilledMemory() { ::mallopt(M_PERTURB, 0); }
  FilledMemory(const FilledMemory&) = delete;
  FilledMemory& operator=(const FilledMemory&) = delete;
};

TEST_F(DeviceFile, IsNotReadBeyondItsEndWhereABrokenCharacterEndsIt) {
  const FilledMemory quotes('\'');
  for (const std::string letter : {"\xC3", "\xE2", "\xF0"}) {
    write("\xEF\xBB\xBF<AgentConfig a='" + letter);
    log.clear();
    isRefused("line 1, column 14: Error parsing Element.");
    sleeps.clear();
  }
}

TEST_F(DeviceFile, OfManyElementsBesideOneAnotherIsLoaded) {
  constexpr int kItems = 200000;
  std::string device = "<D DeviceDesc='a'>";
  for (int i = 0; i < kItems; ++i) {
    device += "<I Key='" + std::to_string(i) + "' Value='v'/>";
  }
  writeDevices(device + "</D>");
  EXPECT_THAT(list("a"), SizeIs(kItems));
}

/// Would be heard of if static objects were destroyed.
struct Witness {
  ~Witness() {
    if (armed) {
      std::_Exit(3);
    }
  }
  static inline bool armed = false;
};
const Witness witness;

TEST_F(DeviceFile, ThatIsMissingEndsTheProcessWithoutDestructors) {
  EXPECT_EXIT(
      {
        Witness::armed = true;
        std::atexit([] { std::_Exit(4); });
        parser.parse();
      },
      ::testing::ExitedWithCode(1), "");
}

}  // namespace
}  // namespace qov::test
