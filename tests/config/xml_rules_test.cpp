// How TinyXML reads a file: docs/device-configuration.md says the same in words.
#include <tinyxml.h>

#include "tests/config/device_xml.h"

using ::testing::HasSubstr;

namespace qov::test {
namespace {

class DeviceXmlRules : public DeviceXmlTest {
 protected:
  /// The value of the only item of a file that begins with `head` and has `value` in quotes.
  std::string read(const std::string& value, const std::string& head = "") {
    CQOVXmlConfig::close();
    write(head + "<AgentConfig><D><A DeviceDesc='a'><I Key='k' Value=\"" + value +
          "\"/></A></D></AgentConfig>");
    return find("a", "k");
  }

  /// Why the file is not loaded; empty when it is.
  std::string refusal(const std::string& content) {
    write(content);
    CQOVXmlParser parser(file());
    log.clear();
    TiXmlDocument document;
    return parser.openXmlDoc(document) ? "" : messages("WARN").front();
  }

  std::string rootError(const std::string& content) {
    CQOVXmlConfig::close();
    write(content);
    log.clear();
    config();
    return messages("ERR").empty() ? "" : messages("ERR").front();
  }
};

constexpr const char* kDeclared = "<?xml version='1.0'?>";
constexpr const char* kLatin1 = "<?xml version='1.0' encoding='ISO-8859-1'?>";
constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";
constexpr const char* kNoRoot = "Failed to parse, exception is parse root element failed! .";
constexpr const char* kRoot = "<AgentConfig><D/></AgentConfig>";

TEST_F(DeviceXmlRules, FiveEntitiesHaveNames) {
  EXPECT_EQ(read("&amp;&lt;&gt;&quot;&apos;"), "&<>\"'");
}

TEST_F(DeviceXmlRules, AnyOtherAmpersandIsDropped) {
  EXPECT_EQ(read("a & b"), "a  b");
  EXPECT_EQ(read("a&nbsp;b"), "anbsp;b");
}

TEST_F(DeviceXmlRules, ANumberedCharacterIsUtf8OnlyInAFileThatIs) {
  EXPECT_EQ(read("&#228;&#x20AC;", kDeclared), "\xC3\xA4\xE2\x82\xAC");
  EXPECT_EQ(read("&#228;&#x20AC;", kByteOrderMark), "\xC3\xA4\xE2\x82\xAC");
  EXPECT_EQ(read("&#228;&#x20AC;"), "\xE4\xAC");
  EXPECT_EQ(read("&#228;", kLatin1), "\xE4");
  EXPECT_EQ(read("&#228;", "<?xml version='1.0' encoding='UTF-8'?>"), "\xC3\xA4");
  EXPECT_EQ(read("&#228;", "<?xml version='1.0' encoding='utf8'?>"), "\xC3\xA4");
}

TEST_F(DeviceXmlRules, ANumberedCharacterMustBeANumber) {
  EXPECT_THAT(refusal("<AgentConfig a='&#12b;'/>"), HasSubstr("Error parsing Element."));
  EXPECT_THAT(refusal("<AgentConfig a='&#65'/>"), HasSubstr("Error parsing Element."));
}

TEST_F(DeviceXmlRules, ANumberedCharacterIsReadBackwardsFromItsEnd) {
  EXPECT_EQ(read("a&#<!--\"/>#65;b"), "aAb");
  EXPECT_EQ(read("a&#x<!--\"/>x41;b"), "aAb");
}

TEST_F(DeviceXmlRules, AZeroCharacterEndsAValue) {
  EXPECT_EQ(read("a&#0;b"), "a");
}

TEST_F(DeviceXmlRules, BytesOfAFileThatDeclaresNoUtf8StayAsTheyAre) {
  EXPECT_EQ(read("caf\xE9"), "caf\xE9");
  EXPECT_EQ(read("caf\xE9", kLatin1), "caf\xE9");
  EXPECT_EQ(read("caf\xC3\xA9", kDeclared), "caf\xC3\xA9");
}

TEST_F(DeviceXmlRules, ABrokenCharacterOfUtf8HidesTheClosingQuote) {
  EXPECT_THAT(refusal(std::string(kDeclared) + "<AgentConfig a='caf\xE9'/>"),
              HasSubstr("Error parsing Element."));
  for (const std::string broken : {"\xC3", "\xE2", "\xE2\x82", "\xF0", "\xF0\x9F\x98"}) {
    EXPECT_THAT(refusal(kByteOrderMark + std::string("<AgentConfig a='") + broken),
                HasSubstr("Error parsing Element."));
  }
}

TEST_F(DeviceXmlRules, ABrokenCharacterOfUtf8StaysAndHidesWhatFollows) {
  EXPECT_EQ(read("caf\xE9 noir", kDeclared), "caf\xE9 noir");
  EXPECT_EQ(read("\xE9&amp;bc", kDeclared), "\xE9&amp;bc");
}

TEST_F(DeviceXmlRules, Utf16IsNotRead) {
  EXPECT_THAT(refusal(std::string("\xFF\xFE<\0A\0/\0>\0", 10)), HasSubstr("Error document empty."));
  EXPECT_EQ(rootError(std::string("<\0A\0/\0>\0", 8)), kNoRoot);
}

TEST_F(DeviceXmlRules, WhiteSpaceInAValueStays) {
  EXPECT_EQ(read("  a\tb  c "), "  a\tb  c ");
  EXPECT_EQ(read("a\r\nb\rc\nd"), "a\nb\nc\nd");
}

TEST_F(DeviceXmlRules, AValueMayDoWithoutQuotesOrHaveMarkupInThem) {
  write("<AgentConfig><D><A DeviceDesc=a><I Key=k Value='<b c=\"d\"/>'/></A></D></AgentConfig>");
  EXPECT_EQ(find("a", "k"), "<b c=\"d\"/>");
}

TEST_F(DeviceXmlRules, AValueWithoutQuotesHasNoSlash) {
  EXPECT_THAT(refusal("<AgentConfig a=/opt/b></AgentConfig>"), HasSubstr("empty tag"));
}

TEST_F(DeviceXmlRules, ARepeatedAttributeIsAnError) {
  EXPECT_THAT(refusal("<AgentConfig><D><A DeviceDesc='a'><I Key='k' Key='l'/></A></D>"
                      "</AgentConfig>"),
              HasSubstr("Error parsing Element."));
}

TEST_F(DeviceXmlRules, TextInFrontOfTheFirstElementIsAnError) {
  EXPECT_THAT(refusal(std::string("text") + kRoot), HasSubstr("Error document empty."));
  EXPECT_EQ(rootError(std::string("<!-- c -->text") + kRoot), kNoRoot);
  EXPECT_EQ(rootError(std::string(kDeclared) + "text" + kRoot), kNoRoot);
}

TEST_F(DeviceXmlRules, TextBehindTheRootEndsTheReading) {
  EXPECT_EQ(refusal(std::string(kRoot) + "text<unclosed>"), "");
  EXPECT_EQ(refusal(std::string(kRoot) + '\0' + "<unclosed>"), "");
  EXPECT_THAT(refusal(std::string(kRoot) + "<unclosed>"),
              HasSubstr("Error reading Element value."));
}

TEST_F(DeviceXmlRules, TheFirstOfTwoRootsCounts) {
  EXPECT_EQ(rootError(std::string(kRoot) + "<Other/>"), "");
  EXPECT_EQ(rootError(std::string("<Other/>") + kRoot),
            "Failed to parse, exception is unable to find qov node: Other.");
}

TEST_F(DeviceXmlRules, ADocumentTypeEndsAtItsFirstClosingBracket) {
  EXPECT_EQ(rootError(std::string("<!DOCTYPE AgentConfig SYSTEM 'a.dtd'>") + kRoot), "");
  EXPECT_EQ(rootError(std::string("<!DOCTYPE a [ <!ENTITY e 'x'> ]>") + kRoot), kNoRoot);
}

TEST_F(DeviceXmlRules, AnInstructionEndsAtItsFirstClosingBracket) {
  EXPECT_EQ(rootError(std::string("<?p a?>") + kRoot), "");
  EXPECT_EQ(rootError(std::string("<?p a > b?>") + kRoot), kNoRoot);
}

TEST_F(DeviceXmlRules, CommentsAndInstructionsMayStandAnywhere) {
  write(
      "<?xml version='1.0'?><?other a?><!-- <AgentConfig> --><AgentConfig><!-- a -- b --><D>"
      "<![CDATA[<x>]]><A DeviceDesc='a'><?p?><I Key='k' Value='v'/></A></D></AgentConfig>");
  EXPECT_EQ(find("a", "k"), "v");
}

TEST_F(DeviceXmlRules, TheEndTagMustHaveTheNameInTheSameCase) {
  EXPECT_THAT(refusal("<AgentConfig></agentconfig>"), HasSubstr("Error reading end tag."));
}

}  // namespace
}  // namespace qov::test
