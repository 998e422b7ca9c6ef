// The rules of docs/configuration.md, as ACE keeps them: a new release of ACE that reads or writes
// files in another way is noticed here.
#include <qovpub/qov_ini_operator.h>

#include <string>
#include <vector>

#include "tests/config/ini_file.h"

using qov::test::IniFile;
using qov::test::Items;

namespace {

class IniRules : public IniFile {
 protected:
  int open(const std::string& content) {
    write(content);
    CQOV_Ini_Operator ini;
    return ini.open(file_.c_str());
  }

  // The values of section A in the order in which they are listed.
  Items listed() {
    CQOV_Ini_Operator ini;
    Items items;
    ini.open(file_.c_str());
    ini.enumerateSections("A", items);
    return items;
  }

  // The file as a save without a change leaves it.
  std::string saved() {
    CQOV_Ini_Operator ini;
    EXPECT_EQ(ini.open(file_.c_str()), 0);
    EXPECT_EQ(ini.setConfigItem("A", Items{}), 0);
    return content();
  }
};

}  // namespace

TEST_F(IniRules, WhiteSpaceAroundLinesKeysAndValuesIsDropped) {
  write("  [A]  \n\tk \t=  v w \r\n\n   \nl=\n");
  EXPECT_EQ(read("A", "k"), "v w");
  EXPECT_EQ(read("A", "l"), "");
}

TEST_F(IniRules, WhiteSpaceInsideAHeaderCounts) {
  write("[ A ]\nk=v\n");
  EXPECT_EQ(read(" A ", "k"), "v");
  EXPECT_EQ(read("A", "k"), "(none)");
}

TEST_F(IniRules, WhatFollowsTheLastBracketOfAHeaderIsIgnored) {
  write("[A] anything ; at all\nk=v\n");
  EXPECT_EQ(read("A", "k"), "v");
}

TEST_F(IniRules, CommentsStandOnLinesOfTheirOwn) {
  write("; one\n[A]\n # two\n;k=1\nk=v ; no comment\n");
  EXPECT_EQ(read("A", "k"), "v ; no comment");
}

TEST_F(IniRules, OnePairOfQuotesIsStrippedFromAValue) {
  write("[A]\na=\"x y\"\nb=\" x \"\nc=\"\"q\"\"\nd=\"\"\ne=\"\nf=\"half\ng='s'\nh=\"x\" ; y\n");
  EXPECT_EQ(read("A", "a"), "x y");
  EXPECT_EQ(read("A", "b"), " x ");
  EXPECT_EQ(read("A", "c"), "\"q\"");
  EXPECT_EQ(read("A", "d"), "");
  EXPECT_EQ(read("A", "e"), "");
  EXPECT_EQ(read("A", "f"), "\"half");
  EXPECT_EQ(read("A", "g"), "'s'");
  EXPECT_EQ(read("A", "h"), "\"x\" ; y");
}

TEST_F(IniRules, QuotesAroundAKeyBelongToIt) {
  write("[A]\n\"k\"=v\n");
  EXPECT_EQ(read("A", "\"k\""), "v");
  EXPECT_EQ(read("A", "k"), "(none)");
}

TEST_F(IniRules, ABackslashIsAnOrdinaryCharacterOfAValue) {
  write("[A]\nk=C:\\new\\\n");
  EXPECT_EQ(read("A", "k"), "C:\\new\\");
}

TEST_F(IniRules, AValueReachesFromTheFirstEqualsSignToTheEndOfTheLine) {
  write("[A]\nk=a=b\n");
  EXPECT_EQ(read("A", "k"), "a=b");
}

TEST_F(IniRules, KeysIgnoreCaseAndTheLastValueWins) {
  write("[A]\nKey=1\nkEY=2\nLogFileMaxSize=3\n");
  EXPECT_EQ(read("A", "KEY"), "2");
  EXPECT_EQ(read("A", "logfilemaxsize"), "3");
  EXPECT_EQ(listed().size(), 2u);
  EXPECT_EQ(saved(), "[A]\nLogFileMaxSize=3\nKey=2\n") << "the first spelling stays";
}

TEST_F(IniRules, SectionsMustBeNamedAsTheyAreInTheFile) {
  write("[LOG_CFG]\nk=v\n[MMT]\nk=v\n");
  EXPECT_EQ(read("log_cfg", "k"), "(none)");
  EXPECT_EQ(read("Log_Cfg", "k"), "(none)");
  EXPECT_EQ(read("mmt", "k"), "(none)");
  EXPECT_EQ(read("mMT", "k"), "v") << "an accident of its letters";
}

TEST_F(IniRules, TwoSectionsThatDifferInCaseOnlyAreAFault) {
  EXPECT_EQ(open("[AB]\nk=v\n[ab]\nl=w\n"), -1);
}

TEST_F(IniRules, ASectionThatComesAgainIsContinued) {
  write("[A]\nk=1\n[B]\nk=2\n[A]\nl=3\n");
  EXPECT_EQ(read("A", "k"), "1");
  EXPECT_EQ(read("A", "l"), "3");
}

TEST_F(IniRules, AnEmptyHeaderChangesNothing) {
  write("[A]\nk=1\n[]\nl=2\n");
  EXPECT_EQ(read("A", "l"), "2");
}

TEST_F(IniRules, ASlashOrBackslashInAHeaderNestsSections) {
  write("[A/B]\nk=1\n[A\\C]\nk=2\n");
  EXPECT_EQ(read("A\\B", "k"), "1");
  EXPECT_EQ(read("A\\C", "k"), "2");
  EXPECT_EQ(read("A/B", "k"), "(none)");
}

TEST_F(IniRules, LinesAreNotContinuedAndSectionsInheritNothing) {
  write("[DEFAULT]\nd=1\n[A]\nk=a\\\nl=b\n");
  EXPECT_EQ(read("A", "k"), "a\\");
  EXPECT_EQ(read("A", "l"), "b");
  EXPECT_EQ(read("A", "d"), "(none)");
}

TEST_F(IniRules, NoFileIsIncluded) {
  qov::test::writeFile(directory_.file("other.cfg"), "[A]\nk=v\n");
  write("[A]\n#include " + directory_.file("other.cfg") + "\n");
  EXPECT_EQ(read("A", "k"), "(none)");
  EXPECT_EQ(open("[A]\n!include other.cfg\n"), -1);
}

TEST_F(IniRules, FaultsAreFound) {
  EXPECT_EQ(open("k=v\n"), -1) << "a value before the first section";
  EXPECT_EQ(open("[A]\nk\n"), -1) << "a line without an equals sign";
  EXPECT_EQ(open("[A\nk=v\n"), -1) << "a header without its bracket";
  EXPECT_EQ(open("[A[b]]\nk=v\n"), -1) << "a bracket in a section name";
  EXPECT_EQ(open("[A]\nk[0]=v\n"), -1) << "a bracket in a key";
  EXPECT_EQ(open("[A]\na\\b=v\n"), -1) << "a backslash in a key";
  EXPECT_EQ(open("\xEF\xBB\xBF[A]\nk=v\n"), -1) << "a byte order mark";
  EXPECT_EQ(open(""), 0) << "an empty file is none";
}

TEST_F(IniRules, NothingIsReadOfAFileWithALineThatAceCannotReadWithinItsBuffer) {
  const std::string start = "[A]\nk=v\n";
  const std::string rests[] = {"=\n",          "=x",
                               " \t=x\n",      std::string("\0\n", 2),
                               "=x\n[B]\nl=w", "k=" + std::string(4093, 'x') + "=y\n"};
  for (const std::string& rest : rests) {
    EXPECT_EQ(open(start + rest), -1) << rest;
    EXPECT_EQ(read("A", "k"), "(none)") << rest;
  }
  EXPECT_EQ(open(start + "x==y\n;=\n[=]\nk=" + std::string(4092, 'x') + "=\n"), 0);
}

TEST_F(IniRules, NamesHaveUpTo255Bytes) {
  const std::string longest(255, 'n');
  EXPECT_EQ(open("[" + longest + "]\n" + longest + "=v\n"), 0);
  EXPECT_EQ(open("[" + longest + "n]\nk=v\n"), -1);
  EXPECT_EQ(open("[A]\n" + longest + "n=v\n"), -1);
}

TEST_F(IniRules, LinesHaveUpTo4095Bytes) {
  const std::string longest(4093, 'v');
  write("[A]\nk=" + longest + "\n");
  EXPECT_EQ(read("A", "k"), longest);
  EXPECT_EQ(open("[A]\nk=" + longest + "v\n"), -1) << "the rest is a line without an equals sign";
  write("[A]\nk=" + longest + "l=w\n");
  EXPECT_EQ(read("A", "l"), "w") << "the rest is a line of its own";
}

TEST_F(IniRules, ValuesAreListedByTheLastCharacterOfTheKeyAndThenNewestFirst) {
  write("[A]\nk1=1\nx1=2\nk2=3\ny1=4\n");
  EXPECT_EQ(listed(), (Items{{"k2", "3"}, {"y1", "4"}, {"x1", "2"}, {"k1", "1"}}));
}

TEST_F(IniRules, AFileIsWrittenInTheOrderOfTheListWithoutComments) {
  write("; comment\n[A]\n\nk1 = 1\nx1 = 2\n[EMPTY]\n[B/C]\nk=v\n");
  const std::string first = saved();
  EXPECT_EQ(first.find("comment"), std::string::npos);
  EXPECT_NE(first.find("[A]\nx1=2\nk1=1\n"), std::string::npos) << first;
  EXPECT_NE(first.find("[EMPTY]\n"), std::string::npos) << first;
  EXPECT_NE(first.find("[B]\n[B\\C]\nk=v\n"), std::string::npos) << first;
  EXPECT_NE(saved().find("[A]\nk1=1\nx1=2\n"), std::string::npos) << "every save turns them round";
}
