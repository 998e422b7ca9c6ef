#include "diag/log_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/child.h"
#include "tests/support/files.h"

namespace {

/// Which of the next looks for a file, and which of the next renamings, finds the log's directory
/// away; 0: none.
int lookWithoutDirectory = 0;
int renamingWithoutDirectory = 0;
/// What renameat2() fails with; 0: it works.
int errorOfRenaming = 0;

bool isAway(int& call) {
  if (call > 0 && --call == 0) {
    errno = ENOENT;
    return true;
  }
  return false;
}

}  // namespace

// In the place of the system's, so that they can be made to fail.
extern "C" {
int lstat(const char* path, struct stat* status) noexcept {
  return isAway(lookWithoutDirectory) ? -1 : ::fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

int renameat2(int from, const char* old, int to, const char* path, unsigned flags) noexcept {
  if (errorOfRenaming != 0) {
    errno = errorOfRenaming;
    return -1;
  }
  return isAway(renamingWithoutDirectory)
             ? -1
             : static_cast<int>(::syscall(SYS_renameat2, from, old, to, path, flags));
}
}

namespace {

namespace fs = std::filesystem;
using qov::LogFile;
using qov::test::readFile;
using qov::test::TemporaryDirectory;
using qov::test::writeFile;

class LogFileTest : public testing::Test {
 protected:
  bool write(const std::string& text) { return file_.write(text); }

  /// The number that the next descriptor gets.
  static int lowestFreeDescriptor() {
    const int number = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(number);
    return number;
  }

  /// Leaves a file with one line, which someone then renames.
  void beginAndMove() {
    file_.open(path_);
    write("first\n");
    fs::rename(path_, path_ + ".moved");
  }

  static mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  }

  /// Writes until the file is there again: its loss is noticed within a second.
  bool writeUntilThere(const std::string& text) {
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!fs::exists(path_) && std::chrono::steady_clock::now() < giveUp) {
      EXPECT_TRUE(write(text));
    }
    return fs::exists(path_);
  }

  const TemporaryDirectory directory_;
  const std::string path_ = directory_.file("x.log");
  LogFile file_;
};

TEST_F(LogFileTest, AppendsToWhatIsThere) {
  writeFile(path_, "old\n");
  ASSERT_TRUE(file_.open(path_));
  EXPECT_TRUE(write("new\n"));
  EXPECT_EQ(readFile(path_), "old\nnew\n");
}

TEST_F(LogFileTest, IsClosedToOthersWhateverTheModeMask) {
  const mode_t mask = ::umask(0);
  file_.open(path_);
  write(std::string(100, 'x'));
  file_.check(10, 1);
  ::umask(mask);
  EXPECT_EQ(modeOf(path_ + ".1"), 0640U);
  EXPECT_EQ(modeOf(path_), 0640U);
}

TEST_F(LogFileTest, ClosesAFileThatOthersCouldWriteTo) {
  writeFile(path_, "");
  ASSERT_EQ(::chmod(path_.c_str(), 0666), 0);
  file_.open(path_);
  EXPECT_EQ(modeOf(path_), 0664U);
}

TEST_F(LogFileTest, ReportsADirectoryThatIsMissingAndTriesAgain) {
  const std::string path = directory_.file("missing/x.log");
  EXPECT_FALSE(file_.open(path));
  EXPECT_FALSE(write("lost\n"));
  fs::create_directory(directory_.path() / "missing");
  EXPECT_TRUE(write("kept\n"));
  EXPECT_EQ(readFile(path), "kept\n");
}

TEST_F(LogFileTest, RefusesEveryRecordWhileItsDirectoryIsGone) {
  const std::string path = directory_.file("dir/x.log");
  writeFile(path, "");
  file_.open(path);
  EXPECT_TRUE(write("before\n"));
  fs::remove_all(fs::path(path).parent_path());
  file_.check(0, 2);
  for (int record = 0; record < 3; ++record) {
    EXPECT_FALSE(write("into a file that nobody can open\n"));
  }
  fs::create_directory(fs::path(path).parent_path());
  EXPECT_TRUE(write("after\n"));
  EXPECT_EQ(readFile(path), "after\n");
}

TEST_F(LogFileTest, LeavesTheFormerFileForAnother) {
  file_.open(path_);
  EXPECT_TRUE(file_.open(directory_.file("y.log")));
  write("y\n");
  EXPECT_FALSE(file_.open(directory_.file("missing/z.log")));
  EXPECT_FALSE(write("z\n"));
  EXPECT_EQ(readFile(path_), "");
  EXPECT_EQ(readFile(directory_.file("y.log")), "y\n");
}

TEST_F(LogFileTest, KeepsItsFileWhenItCannotBeOpenedAgain) {
  file_.open(path_);
  fs::rename(path_, path_ + ".moved");
  fs::create_directory(path_);
  EXPECT_FALSE(file_.open(path_));
  EXPECT_TRUE(write("kept\n"));
  EXPECT_EQ(readFile(path_ + ".moved"), "kept\n");
}

TEST_F(LogFileTest, BeginsAnewWhenTheFileWasDeleted) {
  file_.open(path_);
  write("gone\n");
  fs::remove(path_);
  EXPECT_TRUE(writeUntilThere("anew\n"));
  EXPECT_EQ(readFile(path_), "anew\n");
}

TEST_F(LogFileTest, BeginsAnewAtTheCheckWhenTheFileWasMoved) {
  beginAndMove();
  write("second\n");
  file_.check(0, 2);
  write("third\n");
  EXPECT_EQ(readFile(path_ + ".moved"), "first\nsecond\n");
  EXPECT_EQ(readFile(path_), "third\n");
}

TEST_F(LogFileTest, BeginsAnewWithoutAnyCheckWhenTheFileWasMoved) {
  beginAndMove();
  EXPECT_TRUE(writeUntilThere("anew\n"));
  EXPECT_EQ(readFile(path_), "anew\n");
}

TEST_F(LogFileTest, LeavesADescriptorAloneThatIsNoLongerItsOwn) {
  const std::string other = directory_.file("other");
  const int number = lowestFreeDescriptor();
  file_.open(path_);
  const int foreign = ::open(other.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(::dup2(foreign, number), number);  // as if the number had been closed and given away
  file_.check(0, 2);
  EXPECT_TRUE(write("mine\n"));
  EXPECT_EQ(readFile(path_), "mine\n");
  EXPECT_EQ(readFile(other), "");
  EXPECT_EQ(::close(number), 0) << "it belongs to someone else now";
  ::close(foreign);
}

TEST_F(LogFileTest, WritesOnAtOnceWhenItsDescriptorWasClosed) {
  const int number = lowestFreeDescriptor();
  file_.open(path_);
  EXPECT_TRUE(write("before\n"));
  ASSERT_EQ(::close(number), 0);
  EXPECT_TRUE(write("after\n"));
  EXPECT_EQ(readFile(path_), "before\nafter\n");
}

TEST_F(LogFileTest, WritesOnAtOnceWhenItsDescriptorTakesNoMoreWriting) {
  const int number = lowestFreeDescriptor();
  file_.open(path_);
  EXPECT_TRUE(write("before\n"));
  const int foreign = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::dup2(foreign, number), number);
  EXPECT_TRUE(write("after\n"));
  EXPECT_EQ(readFile(path_), "before\nafter\n");
  EXPECT_EQ(::close(number), 0) << "it belongs to someone else now";
  ::close(foreign);
}

TEST_F(LogFileTest, DoesNotWaitForTheReaderOfAPipe) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(file_.open(path_));
}

TEST_F(LogFileTest, RotatesOnlyBeyondTheLimit) {
  file_.open(path_);
  write(std::string(10, 'x'));
  file_.check(10, 2);
  EXPECT_FALSE(fs::exists(path_ + ".1"));
  write("x");
  file_.check(10, 2);
  EXPECT_EQ(readFile(path_ + ".1"), std::string(11, 'x'));
  EXPECT_EQ(readFile(path_), "");
}

TEST_F(LogFileTest, NeverRotatesWithoutALimit) {
  file_.open(path_);
  write(std::string(100, 'x'));
  file_.check(0, 2);
  EXPECT_FALSE(fs::exists(path_ + ".1"));
}

TEST_F(LogFileTest, ShiftsItsPredecessorsAndDropsTheOldest) {
  file_.open(path_);
  for (const char* const generation : {"aa", "bb", "cc", "dd"}) {
    write(generation);
    file_.check(1, 2);
  }
  EXPECT_EQ(readFile(path_ + ".1"), "dd");
  EXPECT_EQ(readFile(path_ + ".2"), "cc");
  EXPECT_FALSE(fs::exists(path_ + ".3"));
}

TEST_F(LogFileTest, ShiftsThePredecessorsOfAnEarlierRun) {
  writeFile(path_ + ".1", "earlier");
  file_.open(path_);
  write("now");
  file_.check(1, 2);
  EXPECT_EQ(readFile(path_ + ".1"), "now");
  EXPECT_EQ(readFile(path_ + ".2"), "earlier");
}

TEST_F(LogFileTest, KeepsNothingOfAFileWithoutPredecessors) {
  file_.open(path_);
  write("aa");
  file_.check(1, 0);
  write("b");
  EXPECT_EQ(readFile(path_), "b");
  EXPECT_FALSE(fs::exists(path_ + ".1"));
}

TEST_F(LogFileTest, RemovesThePredecessorsFromANumberOn) {
  for (const char* const number : {".1", ".2", ".3", ".4"}) {
    writeFile(path_ + number, "");
  }
  file_.open(path_);
  file_.removeFrom(2);
  EXPECT_TRUE(fs::exists(path_));
  EXPECT_TRUE(fs::exists(path_ + ".1"));
  for (const char* const number : {".2", ".3", ".4"}) {
    EXPECT_FALSE(fs::exists(path_ + number)) << number;
  }
}

TEST_F(LogFileTest, RemovesNothingThatRotationHasNotMade) {
  const std::vector<std::string> others = {".4", ".20261122", ".03", ".2x", "2"};
  for (const std::string& other : others) {
    writeFile(path_ + other, "");
  }
  writeFile(path_ + ".2", "");
  file_.open(path_);
  file_.removeFrom(2);
  EXPECT_FALSE(fs::exists(path_ + ".2"));
  for (const std::string& other : others) {
    EXPECT_TRUE(fs::exists(path_ + other)) << other << " comes after a gap or is no number";
  }
  fs::create_directory(path_ + ".2");
  file_.removeFrom(2);
  fs::create_symlink(path_ + ".4", path_ + ".5");
  file_.removeFrom(5);
  EXPECT_TRUE(fs::exists(path_ + ".2"));
  EXPECT_TRUE(fs::is_symlink(path_ + ".5"));
}

TEST_F(LogFileTest, RemovesNothingWithoutAPath) {
  writeFile(directory_.file(".2"), "");
  EXPECT_TRUE(qov::test::holdsInChild([this] {
    return ::chdir(directory_.path().c_str()) == 0 && !file_.open("") &&
           (file_.removeFrom(2), true);
  }));
  EXPECT_TRUE(fs::exists(directory_.file(".2"))) << "it is somebody else's";
}

TEST_F(LogFileTest, GoesOnGrowingWhenItCannotBeRotated) {
  writeFile(fs::path(path_ + ".1") / "occupied", "");
  file_.open(path_);
  write("aa");
  file_.check(1, 1);
  write("bb");
  EXPECT_EQ(readFile(path_), "aabb");
}

TEST_F(LogFileTest, GoesOnGrowingWhenAPredecessorCannotBeShifted) {
  writeFile(fs::path(path_ + ".2") / "occupied", "");
  writeFile(path_ + ".1", "earlier");
  file_.open(path_);
  write("aa");
  file_.check(1, 2);
  write("bb");
  EXPECT_EQ(readFile(path_ + ".1"), "earlier");
  EXPECT_EQ(readFile(path_), "aabb");
}

/// Three predecessors, and a directory that is away for a moment of the rotation.
class LogFileWithPredecessors : public LogFileTest {
 protected:
  LogFileWithPredecessors() {
    for (const char* const number : {"1", "2", "3"}) {
      writeFile(path_ + "." + number, number);
    }
    file_.open(path_);
    write("now");
  }

  void rotates() {
    file_.check(1, 5);
    EXPECT_EQ(readFile(path_ + ".1"), "now");
    EXPECT_EQ(readFile(path_ + ".2"), "1");
    EXPECT_EQ(readFile(path_ + ".3"), "2");
    EXPECT_EQ(readFile(path_ + ".4"), "3");
  }
};

TEST_F(LogFileWithPredecessors, LosesNoneWhenTheDirectoryIsAwayForARenaming) {
  renamingWithoutDirectory = 2;
  file_.check(1, 5);
  EXPECT_EQ(readFile(path_), "now");
  rotates();
}

TEST_F(LogFileWithPredecessors, LosesNoneWhenTheDirectoryIsAwayForALook) {
  lookWithoutDirectory = 1;
  file_.check(1, 5);
  EXPECT_EQ(readFile(path_), "now");
  rotates();
}

TEST_F(LogFileWithPredecessors, ShiftsThemWhereTheFileSystemCannotTellWhatIsInTheWay) {
  errorOfRenaming = EINVAL;
  rotates();
  errorOfRenaming = 0;
}

TEST_F(LogFileTest, GivesTheNewFileTheOwnerOfTheOld) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  file_.open(path_);
  ASSERT_EQ(::chown(path_.c_str(), 1, 1), 0);
  write("aa");
  file_.check(1, 2);
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1U);
  EXPECT_EQ(status.st_gid, 1U);
}

/// Stands for a disk with room for a few bytes more.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &limit_);
    const rlimit lower{bytes, limit_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &lower);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &limit_);
    ::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit limit_{};
  void (*handler_)(int);
};

TEST_F(LogFileTest, WritesARecordWholeOrNotAtAll) {
  file_.open(path_);
  EXPECT_TRUE(write("first\n"));
  {
    const FileSizeLimit almostFull(10);
    EXPECT_FALSE(write("does not fit\n"));
    EXPECT_EQ(readFile(path_), "first\n");
    EXPECT_TRUE(write("abc\n"));
  }
  EXPECT_TRUE(write("last\n"));
  EXPECT_EQ(readFile(path_), "first\nabc\nlast\n");
}

}  // namespace
