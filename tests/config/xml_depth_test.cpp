#include "config/xml/qov_xml_depth.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <random>
#include <string>

namespace qov::test {
namespace {

/// How deep elements nest below `node`; children of what is not closed count as well.
int depthBelow(const TiXmlNode& node) {
  int deepest = 0;
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    deepest = std::max(deepest, depthBelow(*child) + (child->ToElement() != nullptr ? 1 : 0));
  }
  return deepest;
}

std::string padded(const std::string& text) {
  return text + std::string(kXmlPadding, '\0');
}

int depthInTinyXml(const std::string& text) {
  TiXmlDocument document;
  document.Parse(padded(text).c_str());
  return depthBelow(document);
}

int depthOf(const std::string& text) {
  return extentOfXml(padded(text)).depth;
}

/// The most attributes of one element below `node`.
int attributesBelow(const TiXmlNode& node) {
  int most = 0;
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    int own = 0;
    const TiXmlElement* const element = child->ToElement();
    for (auto* at = element == nullptr ? nullptr : element->FirstAttribute(); at != nullptr;
         at = at->Next()) {
      ++own;
    }
    most = std::max({most, own, attributesBelow(*child)});
  }
  return most;
}

int attributesInTinyXml(const std::string& text) {
  TiXmlDocument document;
  document.Parse(padded(text).c_str());
  return attributesBelow(document);
}

int attributesOf(const std::string& text) {
  return extentOfXml(padded(text)).attributes;
}

TEST(XmlDepth, CountsElementsInsideOneAnother) {
  EXPECT_EQ(depthOf(""), 0);
  EXPECT_EQ(depthOf("<a/>"), 1);
  EXPECT_EQ(depthOf("<a><b/><b/></a>"), 2);
  EXPECT_EQ(depthOf("<a><b></b><b></b></a>"), 2);
  EXPECT_EQ(depthOf("<a><b><c d='e'/></b>text<b/></a>"), 3);
}

TEST(XmlDepth, CountsElementsThatAreNeverClosed) {
  EXPECT_EQ(depthOf("<a><b><c>"), 3);
  EXPECT_EQ(depthOf("<a><b><c"), 3);
}

TEST(XmlDepth, LooksForElementsNowhereElse) {
  for (const std::string hiding :
       {"<!-- <x><x> -->", "<![CDATA[<x><x>]]>", "<? <x?>", "<b c='<x><x>'/>", "<b c=\"'<x><x>\"/>",
        "<?xml version='<x><x>'?>", "<!DOCTYPE <x>", "text &lt;x&gt;"}) {
    EXPECT_EQ(depthOf("<a><b>" + hiding + "</b></a>"), hiding[1] == 'b' ? 3 : 2) << hiding;
  }
}

TEST(XmlDepth, LooksForEndsOfElementsNowhereElse) {
  for (const std::string hiding : {"<!-- </a></a> -->", "<![CDATA[</a></a>]]>", "<b c='</a>'/>",
                                   "<b c=\"</a>'\"/>", "<?xml encoding='</a>'?>"}) {
    EXPECT_EQ(depthOf("<a><a>" + hiding + "<a><a>"), 4) << hiding;
  }
}

TEST(XmlDepth, EndsWhereTinyXmlStopsReading) {
  EXPECT_EQ(depthOf("text<a><a>"), 0);
  EXPECT_EQ(depthOf("<a/>text<a><a>"), 1);
  EXPECT_EQ(depthOf("<a 1><a><a>"), 1);
}

TEST(XmlDepth, LooksForNothingWithinANumberedCharacter) {
  for (const std::string hiding :
       {"&#<!--#65;", "&#x<!--x41;", "&#</a>#65;", "<a b='&#'#65;'>", "<a b=\"&#x\"x41;\">"}) {
    const std::string text = "<a>" + hiding + "<a><a>";
    const int depth = hiding[0] == '<' ? 4 : 3;
    EXPECT_EQ(depthInTinyXml(text), depth) << text;
    EXPECT_EQ(depthOf(text), depth) << text;
  }
}

TEST(XmlDepth, EndsAtANumberedCharacterThatIsNone) {
  for (const std::string wrong : {"&#1z;", "&#x1z;", "&#65", "&#x"}) {
    const std::string text = "<a>" + wrong + "<a>";
    EXPECT_EQ(depthInTinyXml(text), 1) << text;
    EXPECT_EQ(depthOf(text), 1) << text;
  }
}

TEST(XmlDepth, TakesBlanksInFrontOfANameForBlanks) {
  for (const std::string blank : {"\xEF\xBB\xBF", "\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
    const std::string text = "\xEF\xBB\xBF<" + blank + " a><a><a>";
    EXPECT_EQ(depthInTinyXml(text), 3) << text;
    EXPECT_EQ(depthOf(text), 3) << text;
  }
}

TEST(XmlDepth, KnowsTheEncoding) {
  const std::string latin1 = "<a b='\xE9' c='><a>'/>";  // in UTF-8 the letter swallows the quote
  for (const std::string head :
       {"", "<?xml encoding='ISO-8859-1'?>", "<?xml encoding='utf'?>",
        "<?xml encoding='x'?><?xml encoding='UTF-8'?>", "<a><?xml encoding='UTF-8'?></a>"}) {
    EXPECT_EQ(depthInTinyXml(head + latin1), 1) << head;
    EXPECT_EQ(depthOf(head + latin1), 1) << head;
  }
  for (const std::string head :
       {"\xEF\xBB\xBF", "\xEF\xBB\xBF<?xml encoding='ISO-8859-1'?>", "<?xml version='1.0'?>",
        "<?xml encoding='UTF-8'?>", "<?xml encoding=utf8x?>", "<?XML encoding='&#85;TF-8'?>",
        "<?xml encoding='UTF-8'?><?xml encoding='x'?>", "<!-- --><?xml?>"}) {
    EXPECT_EQ(depthInTinyXml(head + latin1), 2) << head;
    EXPECT_EQ(depthOf(head + latin1), 2) << head;
  }
}

TEST(XmlAttributes, CountsThoseOfTheElementThatHasMost) {
  EXPECT_EQ(attributesOf(""), 0);
  EXPECT_EQ(attributesOf("<a/>"), 0);
  EXPECT_EQ(attributesOf("<a b='' c=d e=\"f\"/>"), 3);
  EXPECT_EQ(attributesOf("<a b=''><a b='' c=''/><a b=''></a></a>"), 2);
}

TEST(XmlAttributes, LooksForThemNowhereElse) {
  for (const std::string hiding : {"<!-- <a b='' c=''/> -->", "<![CDATA[<a b='' c=''/>]]>",
                                   "<a b=\" c='' d=''\"/>", "<?xml version='1' encoding='x'?>"}) {
    EXPECT_LE(attributesOf("<a>" + hiding + "</a>"), 1) << hiding;
  }
}

TEST(XmlAttributes, CountsThoseOfAnElementThatIsNotClosed) {
  EXPECT_EQ(attributesOf("<a b='' c='' d"), 2);
}

/// Texts put together of what has a meaning, most of them with an error somewhere.
class Texts {
 public:
  std::string next() {
    static const std::string kPieces[] = {"<a>",
                                          "<a>",
                                          "<a>",
                                          "</a>",
                                          "</a>",
                                          "<a b=\"",
                                          "\"",
                                          "'",
                                          "<a ",
                                          "/>",
                                          ">",
                                          "<!--",
                                          "-->",
                                          "<![CDATA[",
                                          "]]>",
                                          "<?xml ",
                                          "<?xml version='1.0'?>",
                                          "<?xml encoding=\"UTF-8\"?>",
                                          "<?xml encoding='x'?>",
                                          " version='",
                                          "?>",
                                          "<!DOCTYPE x [",
                                          "]",
                                          "&amp;",
                                          "&#x",
                                          "&#65;",
                                          "&#",
                                          "#65;",
                                          "x41;",
                                          "<\xEF\xBB\xBF",
                                          "&",
                                          ";",
                                          "\xE2",
                                          "\xEF\xBB\xBF",
                                          "\xEF\xBF\xBF",
                                          "\xF0",
                                          "\xC3",
                                          "x",
                                          "=",
                                          " b=",
                                          "<",
                                          " ",
                                          "\n",
                                          "<?p",
                                          "</",
                                          "<a b=c",
                                          "<a b='</a>'>",
                                          "<_/>",
                                          "<a c=\"<a>\"/>"};
    std::uniform_int_distribution<std::size_t> piece(0, std::size(kPieces) - 1);
    std::string text = piece(random_) % 4 == 0 ? "\xEF\xBB\xBF" : "";
    for (std::size_t left = 1 + piece(random_) / 2; left > 0; --left) {
      text += kPieces[piece(random_)];
    }
    return text;
  }

 private:
  std::mt19937 random_{1};
};

TEST(XmlDepth, IsNeverLessThanTinyXmlGoes) {
  constexpr int kTexts = 50000;
  Texts texts;
  int equal = 0;
  for (int i = 0; i < kTexts; ++i) {
    const std::string text = texts.next();
    const int real = depthInTinyXml(text);
    const int told = depthOf(text);
    ASSERT_GE(told, real) << text;
    ASSERT_GE(attributesOf(text), attributesInTinyXml(text)) << text;
    equal += told == real ? 1 : 0;
  }
  // More only behind an error that is not looked for, since no text without errors needs it: an end
  // tag of another element, an attribute that comes again.
  EXPECT_GT(equal, kTexts * 99 / 100);
}

}  // namespace
}  // namespace qov::test
