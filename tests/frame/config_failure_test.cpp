// What CProcInfo's exception says beside its text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qovpub/qov_utility.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "frame/env/env_failure.h"
#include "frame/env/env_proc_name.h"
#include "tests/support/agent_root.h"

using qov::whyEmptyName;
using ::testing::HasSubstr;

namespace {

class ConfigFailure : public ::testing::Test {
 protected:
  ConfigFailure() { ::setenv("QOV_ROOT", root_.path().c_str(), 1); }
  ~ConfigFailure() override { ::unsetenv("QOV_ROOT"); }

  static std::string processName() {
    std::string name;
    CProcInfo::getProcName(name);
    return name;
  }

  void configure(const std::string& text) const { AgentRoot::write(root_.cfgFile(), text); }

  /// The failure as a line, without what all of them begin with.
  std::string failure() const {
    try {
      const CProcInfo info;
    } catch (const qov::EnvFailure& e) {
      const std::string start = "Failed to read the configuration: " + root_.cfgFile().string();
      const std::string text = qov::textOf(e.failure());
      return text.compare(0, start.size(), start) == 0 ? text.substr(start.size()) : text;
    }
    return "nothing fails";
  }

  const AgentRoot root_{processName()};
};

TEST_F(ConfigFailure, SaysThatTheFileIsMissing) {
  EXPECT_EQ(failure(), ": No such file or directory");
}

TEST_F(ConfigFailure, SaysThatQovRootIsNotSet) {
  ::unsetenv("QOV_ROOT");
  EXPECT_THAT(failure(), HasSubstr("the environment variable QOV_ROOT is not set or empty"));
}

TEST_F(ConfigFailure, SaysThatTheFileIsADirectory) {
  std::filesystem::create_directory(root_.cfgFile());
  EXPECT_EQ(failure(), ": it is a directory");
}

TEST_F(ConfigFailure, RefusesAPipeInsteadOfWaitingForItsWriter) {
  ASSERT_EQ(::mkfifo(root_.cfgFile().c_str(), 0600), 0);
  EXPECT_EQ(failure(), ": it is no regular file");
}

TEST_F(ConfigFailure, RefusesADevice) {
  std::filesystem::create_symlink("/dev/null", root_.cfgFile());
  EXPECT_EQ(failure(), ": it is no regular file");
}

TEST_F(ConfigFailure, SaysThatTheFileMustNotBeRead) {
  if (::geteuid() == 0) {
    GTEST_SKIP() << "root may read everything";
  }
  configure("[QOV_GLOBAL]\nPROC_PID=1\n");
  ::chmod(root_.cfgFile().c_str(), 0);
  EXPECT_EQ(failure(), ": Permission denied");
}

TEST_F(ConfigFailure, NamesTheLineThatIsNone) {
  configure("; comment\n[QOV_GLOBAL]\nPROC_PID=1\n\nno equals sign\nA=1\n");
  EXPECT_EQ(failure(), ":5: neither [section] nor key=value nor a comment");
}

TEST_F(ConfigFailure, NamesTheLastLineWithoutItsEnd) {
  configure("[QOV_GLOBAL]\nPROC_PID=1\n[LOG_CFG");
  EXPECT_EQ(failure(), ":3: neither [section] nor key=value nor a comment");
}

TEST_F(ConfigFailure, NamesTheLineOfAValueOutsideOfASection) {
  configure("PROC_PID=1\n[QOV_GLOBAL]\n");
  EXPECT_EQ(failure(), ":1: a value outside of a section, or a key that cannot be one");
}

TEST_F(ConfigFailure, NamesTheLineOfAKeyThatCannotBeOne) {
  configure("[QOV_GLOBAL]\nPROC_PID=1\nk[0]=1\n");
  EXPECT_EQ(failure(), ":3: a value outside of a section, or a key that cannot be one");
}

TEST_F(ConfigFailure, NamesTheLineThatBeginsWithAnEqualsSign) {
  configure("[QOV_GLOBAL]\nPROC_PID=1\n=v\n");
  EXPECT_EQ(failure(), ":3: begins with \"=\" or a zero byte");
}

TEST_F(ConfigFailure, SaysThatThereIsAByteOrderMark) {
  configure("\xEF\xBB\xBF[QOV_GLOBAL]\nPROC_PID=1\n");
  EXPECT_EQ(failure(), ":1: the file begins with a byte order mark");
}

TEST_F(ConfigFailure, NamesTheSectionOrTheKeyThatIsMissing) {
  configure("");
  EXPECT_EQ(failure(), ": QOV_GLOBAL: there is no such section");
  configure("[QOV_GLOBAL]\nOTHER=1\n");
  EXPECT_EQ(failure(), ": QOV_GLOBAL/PROC_PID: there is no such key");
}

TEST(EmptyProcName, NamesTheFolderWithTheLastDot) {
  EXPECT_EQ(
      whyEmptyName("/opt/rel1.2/bin/devagent"),
      "the process name is empty, since the name ends at the last dot of the executable's path "
      "/opt/rel1.2/bin/devagent, which stands in the folder name /opt/rel1.2; give the file a "
      "suffix (/opt/rel1.2/bin/devagent.bin)");
}

TEST(EmptyProcName, SaysThatTheFilesNameBeginsWithItsOnlyDot) {
  EXPECT_THAT(whyEmptyName("/opt/.devagent"), HasSubstr("at the beginning of the file's name"));
}

TEST(EmptyProcName, SaysThatThePathIsUnknown) {
  EXPECT_THAT(whyEmptyName(""), HasSubstr("/proc does not give the executable's path"));
}

}  // namespace
