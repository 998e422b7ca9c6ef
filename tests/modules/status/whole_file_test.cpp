// The file that "qovctl agent trace" writes.
#include "tools/qovctl/whole_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <iterator>
#include <string>

#include "tests/support/files.h"
#include "tools/qovctl/failure.h"

namespace qov::test {
namespace {

namespace fs = std::filesystem;

class WholeFileTest : public ::testing::Test {
 protected:
  std::size_t files() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder.path()), {}));
  }

  const TemporaryDirectory folder;
  const std::string path = folder.file("trace.json");
};

TEST_F(WholeFileTest, IsThereWhenItIsWhole) {
  writeFile(path, "old");
  ctl::WholeFile file(path);
  file.write("one, ");
  file.write("two");
  EXPECT_EQ(readFile(path), "old");
  file.commit();
  EXPECT_EQ(readFile(path), "one, two");
  EXPECT_EQ(files(), 1U);
}

TEST_F(WholeFileTest, LeavesTheOldOneWhereItDoesNotGetSoFar) {
  writeFile(path, "old");
  { ctl::WholeFile(path).write("new"); }
  EXPECT_EQ(readFile(path), "old");
  EXPECT_EQ(files(), 1U);
}

TEST_F(WholeFileTest, HasTheModeThatNewFilesHave) {
  const mode_t before = ::umask(027);
  ctl::WholeFile file(path);
  file.commit();
  ::umask(before);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0640));
}

TEST_F(WholeFileTest, LeavesNothingWhereItCannotTakeItsPlace) {
  {
    ctl::WholeFile file(path);
    fs::create_directory(path);
    EXPECT_THROW(file.commit(), ctl::Failure);
  }
  EXPECT_TRUE(fs::is_directory(path));
  EXPECT_EQ(files(), 1U);
}

TEST_F(WholeFileTest, TakesThePlaceOfNothingElseThanAFile) {
  EXPECT_THROW(ctl::WholeFile(folder.path()), ctl::Failure);
  EXPECT_THROW(ctl::WholeFile("/dev/null"), ctl::Failure);
  EXPECT_THROW(ctl::WholeFile(folder.file("missing/trace.json")), ctl::Failure);
  EXPECT_EQ(files(), 0U);
}

}  // namespace
}  // namespace qov::test
