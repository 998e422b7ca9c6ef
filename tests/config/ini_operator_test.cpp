#include <ace/Configuration.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_utility.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tests/config/ini_file.h"
#include "tests/support/failing_allocations.h"

using qov::test::FailingAllocations;
using qov::test::IniFile;
using qov::test::Items;
using qov::test::writeFile;

namespace {

class IniOperator : public IniFile {
 protected:
  IniOperator() {
    write("[MMT]\nMMT_ADDR=127.0.0.1:19001\nRETRY=3\n[EMPTY]\n[LOG_CFG]\nLevel=2\n");
  }

  CQOV_Ini_Operator ini_;
};

}  // namespace

TEST_F(IniOperator, FailsBeforeItIsOpened) {
  std::string value = "kept";
  Items items;
  EXPECT_EQ(ini_.getConfigItem("MMT", "RETRY", value), -1);
  EXPECT_EQ(value, "kept");
  EXPECT_EQ(ini_.enumerateSections("MMT", items), -1);
  EXPECT_EQ(ini_.setConfigItem("MMT", "RETRY", "4"), -1);
  EXPECT_EQ(ini_.setConfigItem("MMT", Items{{"RETRY", "4"}}), -1);
  EXPECT_EQ(ini_.setConfigItem("MMT", Items{}), -1);
  EXPECT_EQ(ini_.setConfigItem_i("MMT", "RETRY", "4"), -1);
}

TEST_F(IniOperator, ReadsValues) {
  ASSERT_EQ(ini_.open(file_.c_str()), 0);
  std::string value;
  EXPECT_EQ(ini_.getConfigItem("MMT", "MMT_ADDR", value), 0);
  EXPECT_EQ(value, "127.0.0.1:19001");
  EXPECT_EQ(ini_.getConfigItem("LOG_CFG", "Level", value), 0);
  EXPECT_EQ(value, "2");
}

TEST_F(IniOperator, LeavesTheValueAloneWhenThereIsNone) {
  ASSERT_EQ(ini_.open(file_.c_str()), 0);
  std::string value = "kept";
  EXPECT_EQ(ini_.getConfigItem("MMT", "OTHER", value), -1);
  EXPECT_EQ(ini_.getConfigItem("OTHER", "RETRY", value), -1);
  EXPECT_EQ(ini_.getConfigItem("", "RETRY", value), -1);
  EXPECT_EQ(ini_.getConfigItem(nullptr, "RETRY", value), -1);
  EXPECT_EQ(ini_.getConfigItem("MMT", nullptr, value), -1);
  EXPECT_EQ(value, "kept");
}

TEST_F(IniOperator, AppendsTheValuesOfASection) {
  ASSERT_EQ(ini_.open(file_.c_str()), 0);
  Items items{{"before", "1"}};
  EXPECT_EQ(ini_.enumerateSections("MMT", items), 0);
  items.sort();
  EXPECT_EQ(items, (Items{{"MMT_ADDR", "127.0.0.1:19001"}, {"RETRY", "3"}, {"before", "1"}}));
}

TEST_F(IniOperator, AppendsNothingForAnEmptySectionAndFailsForNone) {
  ASSERT_EQ(ini_.open(file_.c_str()), 0);
  Items items;
  EXPECT_EQ(ini_.enumerateSections("EMPTY", items), 0);
  EXPECT_EQ(ini_.enumerateSections("OTHER", items), -1);
  EXPECT_EQ(ini_.enumerateSections(nullptr, items), -1);
  EXPECT_TRUE(items.empty());
}

TEST_F(IniOperator, ChangesAndAddsValuesThatTheNextOperatorReads) {
  ASSERT_EQ(ini_.open(file_.c_str()), 0);
  EXPECT_EQ(ini_.setConfigItem("MMT", "RETRY", "4"), 0);
  EXPECT_EQ(ini_.setConfigItem("EMPTY", "NEW", "x=y"), 0);
  EXPECT_EQ(read("MMT", "RETRY"), "4");
  EXPECT_EQ(read("EMPTY", "NEW"), "x=y");
  EXPECT_EQ(read("MMT", "MMT_ADDR"), "127.0.0.1:19001");
  EXPECT_EQ(read("LOG_CFG", "Level"), "2");
}

TEST_F(IniOperator, MakesNoSection) {
  ASSERT_EQ(ini_.open(file_.c_str()), 0);
  const std::string before = content();
  EXPECT_EQ(ini_.setConfigItem("OTHER", "KEY", "v"), -1);
  EXPECT_EQ(ini_.setConfigItem("OTHER", Items{{"KEY", "v"}}), -1);
  EXPECT_EQ(ini_.setConfigItem(nullptr, "KEY", "v"), -1);
  EXPECT_EQ(ini_.setConfigItem("MMT", nullptr, "v"), -1);
  EXPECT_EQ(content(), before);
}

TEST_F(IniOperator, SavesAListOfValuesAtOnce) {
  ASSERT_EQ(ini_.open(file_.c_str()), 0);
  EXPECT_EQ(ini_.setConfigItem("MMT", Items{{"A", "1"}, {"B", "2"}, {"A", "3"}}), 0);
  EXPECT_EQ(read("MMT", "A"), "3");
  EXPECT_EQ(read("MMT", "B"), "2");
}

TEST_F(IniOperator, StopsAListAtTheFirstFailureWithoutSaving) {
  ASSERT_EQ(ini_.open(file_.c_str()), 0);
  const std::string before = content();
  EXPECT_EQ(ini_.setConfigItem("MMT", Items{{"A", "1"}, {"B", "two\nlines"}, {"C", "3"}}), -1);
  EXPECT_EQ(content(), before);
  EXPECT_EQ(valueOf(ini_, "MMT", "A"), "1") << "what came before stays changed in memory";
  EXPECT_EQ(valueOf(ini_, "MMT", "C"), "(none)");
}

TEST_F(IniOperator, RewritesTheFileForAnEmptyList) {
  ASSERT_EQ(ini_.open(file_.c_str()), 0);
  write("");
  EXPECT_EQ(ini_.setConfigItem("MMT", Items{}), 0);
  EXPECT_EQ(read("MMT", "RETRY"), "3");
}

TEST_F(IniOperator, ChangesInMemoryOnlyWithTheInternalSetter) {
  ASSERT_EQ(ini_.open(file_.c_str()), 0);
  const std::string before = content();
  EXPECT_EQ(ini_.setConfigItem_i("MMT", "RETRY", "9"), 0);
  EXPECT_EQ(valueOf(ini_, "MMT", "RETRY"), "9");
  EXPECT_EQ(content(), before);
  EXPECT_EQ(ini_.setConfigItem("LOG_CFG", "Level", "1"), 0);
  EXPECT_EQ(read("MMT", "RETRY"), "9") << "the next save takes it along";
}

TEST_F(IniOperator, OpensOnceAndGoesOnWithItsFirstFile) {
  const std::string other = directory_.file("other.cfg");
  const std::string otherContent = "[MMT]\nRETRY=77\n";
  writeFile(other, otherContent);
  ASSERT_EQ(ini_.open(file_.c_str()), 0);
  EXPECT_EQ(ini_.open(other.c_str()), -1);
  EXPECT_EQ(valueOf(ini_, "MMT", "RETRY"), "3");
  EXPECT_EQ(ini_.setConfigItem("MMT", "RETRY", "5"), 0);
  EXPECT_EQ(read("MMT", "RETRY"), "5");
  EXPECT_EQ(qov::test::readFile(other), otherContent) << "the first file is the one saved to";
}

TEST_F(IniOperator, FailsToOpenWhatIsNotThere) {
  EXPECT_EQ(ini_.open(directory_.file("missing.cfg").c_str()), -1);
  CQOV_Ini_Operator directory;
  EXPECT_EQ(directory.open(directory_.path().c_str()), -1);
}

TEST_F(IniOperator, FailsToOpenWithoutMemoryForTheHeapAndMayTryAgain) {
  {
    const auto failing = FailingAllocations::ofObjectsThatGiveNull(sizeof(HEAP_ALLOCATOR));
    EXPECT_EQ(ini_.open(file_.c_str()), -1);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_EQ(ini_.setConfigItem("MMT", Items{}), -1) << "nothing is open";
  EXPECT_EQ(ini_.open(file_.c_str()), 0);
  EXPECT_EQ(valueOf(ini_, "MMT", "RETRY"), "3");
}

TEST_F(IniOperator, FailsToOpenWithoutMemoryForTheImporter) {
  const std::string before = content();
  {
    const auto failing = FailingAllocations::ofObjectsThatGiveNull(sizeof(ACE_Ini_ImpExp));
    errno = 0;
    EXPECT_EQ(ini_.open(file_.c_str()), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_EQ(valueOf(ini_, "MMT", "RETRY"), "(none)");
  EXPECT_EQ(ini_.setConfigItem("MMT", Items{}), -1) << "nothing is open";
  EXPECT_EQ(content(), before);
}

TEST_F(IniOperator, AnswersMinusOneForEveryFaultOfTheFile) {
  for (const char* broken : {"[A]\nno equals sign\n", "[A\n", "k=v\n[A]\n", "[A]\nk[0]=v\n"}) {
    write(broken);
    CQOV_Ini_Operator ini;
    EXPECT_EQ(ini.open(file_.c_str()), -1) << broken;
  }
}

TEST_F(IniOperator, GoesOnWithWhatStoodBeforeTheFault) {
  write("[A]\nk=v\nno equals sign\nl=w\n");
  ASSERT_EQ(ini_.open(file_.c_str()), -1);
  EXPECT_EQ(valueOf(ini_, "A", "k"), "v");
  EXPECT_EQ(valueOf(ini_, "A", "l"), "(none)");
}

namespace {

// A root with this program's own configuration file.
class ProcessIniFile : public IniFile {
 protected:
  ProcessIniFile() {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    ::setenv("QOV_ROOT", directory_.path().c_str(), 1);
    std::string name;
    CProcInfo::getProcName(name);
    processFile_ = directory_.file("conf/" + name + "/" + name + ".cfg");
  }
  ~ProcessIniFile() override { ::unsetenv("QOV_ROOT"); }

  [[noreturn]] void leave(bool expected) {
    directory_.remove();
    std::exit(expected ? 0 : 1);
  }

  std::string processFile_;
};

using ProcessIniFileDeathTest = ProcessIniFile;

}  // namespace

TEST_F(ProcessIniFileDeathTest, IsTheOneOpenedByDefault) {
  EXPECT_EXIT(
      {
        writeFile(processFile_, "[QOV_GLOBAL]\nPROC_PID=5\n[MMT]\nMMT_ADDR=a:1\n");
        CQOV_Ini_Operator ini;
        bool expected = ini.open(nullptr) == 0;
        expected &= valueOf(ini, "MMT", "MMT_ADDR") == "a:1";
        expected &= ini.setConfigItem("MMT", "MMT_ADDR", "b:2") == 0;
        expected &= qov::test::readFile(processFile_).find("MMT_ADDR=b:2") != std::string::npos;
        leave(expected);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(ProcessIniFileDeathTest, FailsToOpenWithoutAnExceptionWhenThereIsNone) {
  EXPECT_EXIT(
      {
        CQOV_Ini_Operator ini;
        bool expected = ini.open(nullptr) == -1;
        writeFile(processFile_, "[QOV_GLOBAL]\nPROC_PID=5\n");
        expected &= ini.open(nullptr) == 0;  // nothing was opened the first time
        leave(expected);
      },
      ::testing::ExitedWithCode(0), "");
}
