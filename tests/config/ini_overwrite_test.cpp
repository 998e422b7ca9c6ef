#include <fcntl.h>
#include <qovpub/qov_ini_operator.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include "tests/config/ini_file.h"
#include "tests/support/child.h"

// Saving where no file can be put in the place of the old one.

using qov::test::holdsAsStranger;
using qov::test::IniFile;
using qov::test::Items;
using qov::test::kStranger;
using qov::test::kStrangersGroup;
using qov::test::readFile;
using qov::test::runWithSmallFiles;
using qov::test::writeFile;
namespace fs = std::filesystem;

namespace {

std::atomic<int> refusedLocks{0};

}  // namespace

// In the place of the system's, to know that a lock was refused.
extern "C" int flock(int descriptor, int operation) noexcept {
  const long result = ::syscall(SYS_flock, descriptor, operation);
  refusedLocks += result == 0 ? 0 : 1;
  return static_cast<int>(result);
}

namespace {

constexpr int kNoRight = 77;

class IniOverwrite : public IniFile {
 protected:
  IniOverwrite() { write("[A]\nk=v\n"); }

  static int save(const std::string& file, const std::string& value) {
    return setIn(file, "k", value);
  }

  /// Gives the file, but not its directory, to the user as whom `body` then runs.
  template <class Body>
  bool holdsForTheOwner(Body body) {
    EXPECT_EQ(::chown(file_.c_str(), kStranger, kStrangersGroup), 0);
    fs::permissions(directory_.path(), fs::perms(0755));
    return holdsAsStranger(body);
  }
};

TEST_F(IniOverwrite, SavesInADirectoryThatIsNotWritable) {
  QOV_SKIP_UNLESS_ROOT();
  ASSERT_EQ(::chmod(file_.c_str(), 0640), 0);
  const struct stat before = statusOf(file_);
  for (const std::string& value : {std::string(4000, 'x'), std::string("w")}) {
    EXPECT_TRUE(holdsForTheOwner([&] { return save(file_, value) == 0; }));
    EXPECT_EQ(content(), "[A]\nk=" + value + "\n") << "nothing is left of a longer one";
  }
  EXPECT_EQ(statusOf(file_).st_ino, before.st_ino);
  EXPECT_EQ(statusOf(file_).st_mode, before.st_mode);
  EXPECT_EQ(filesInDirectory(), 1);
}

TEST_F(IniOverwrite, RefusesAFileThatIsNotWritableEither) {
  QOV_SKIP_UNLESS_ROOT();
  ASSERT_EQ(::chmod(file_.c_str(), 0444), 0);
  EXPECT_TRUE(holdsForTheOwner([&] { return save(file_, "w") == -1; }));
  EXPECT_EQ(content(), "[A]\nk=v\n");
}

TEST_F(IniOverwrite, MakesNoFileInADirectoryThatIsNotWritable) {
  QOV_SKIP_UNLESS_ROOT();
  EXPECT_TRUE(holdsForTheOwner([&] {
    CQOV_Ini_Operator ini;
    return ini.open(directory_.file("missing.cfg").c_str()) == -1 &&
           ini.setConfigItem("A", Items()) == -1;
  }));
  EXPECT_EQ(filesInDirectory(), 1);
}

TEST_F(IniOverwrite, LeavesAForeignFileToItsOwner) {
  QOV_SKIP_UNLESS_ROOT();
  fs::permissions(directory_.path(), fs::perms::all);
  ASSERT_EQ(::chmod(file_.c_str(), 0666), 0);
  EXPECT_TRUE(holdsAsStranger([&] { return save(file_, "w") == 0; }));
  EXPECT_EQ(content(), "[A]\nk=w\n");
  EXPECT_EQ(statusOf(file_).st_uid, 0U);
  EXPECT_EQ(filesInDirectory(), 1);
}

TEST_F(IniOverwrite, LeavesTheOwnerWhomItCannotName) {
  QOV_SKIP_UNLESS_ROOT();
  fs::permissions(directory_.path(), fs::perms::all);
  ASSERT_EQ(::chmod(file_.c_str(), 0666), 0);
  ASSERT_EQ(::chown(file_.c_str(), kStranger, kStranger), 0);
  const int status = qov::test::endOfChild([&] {
    if (::unshare(CLONE_NEWUSER) != 0) {
      ::_exit(kNoRight);
    }
    writeFile("/proc/self/uid_map", "0 0 1");  // as in a container: the owner has no number here
    return save(file_, "w") == 0;
  });
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kNoRight) {
    GTEST_SKIP() << "no right to have users of one's own";
  }
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(content(), "[A]\nk=w\n");
  EXPECT_EQ(statusOf(file_).st_uid, kStranger);
  EXPECT_EQ(filesInDirectory(), 1);
}

/// A file that is written over, since its name leaves no room for another, locked by somebody else.
class IniLocked : public IniOverwrite {
 protected:
  IniLocked() {
    refusedLocks = 0;
    writeFile(longName_, "[A]\nk=v\n");
    other_ = ::open(longName_.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(::flock(other_, LOCK_EX), 0);
  }
  ~IniLocked() override { unlock(); }

  void unlock() {
    if (other_ >= 0) {
      ::close(other_);
    }
    other_ = -1;
  }

  const std::string longName_ = directory_.file(std::string(250, 'n'));
  int other_ = -1;
};

TEST_F(IniLocked, IsSavedWhenItIsFree) {
  std::atomic<bool> isSaved{false};
  std::thread saver([&] {
    EXPECT_EQ(save(longName_, "w"), 0);
    isSaved = true;
  });
  while (!isSaved && refusedLocks == 0) {
    std::this_thread::yield();
  }
  EXPECT_FALSE(isSaved);
  EXPECT_EQ(readFile(longName_), "[A]\nk=v\n");
  unlock();
  saver.join();
  EXPECT_EQ(readFile(longName_), "[A]\nk=w\n");
}

TEST_F(IniLocked, IsLeftAloneWhenItIsNotFreeInTime) {
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(longName_.c_str()), 0);
  EXPECT_EQ(ini.setConfigItem("A", "k", "w"), -1);
  EXPECT_EQ(errno, EWOULDBLOCK);
  EXPECT_EQ(readFile(longName_), "[A]\nk=v\n");
  unlock();
  EXPECT_EQ(ini.setConfigItem("A", Items()), 0);
  EXPECT_EQ(readFile(longName_), "[A]\nk=w\n");
}

TEST_F(IniOverwrite, SavesUnderANameThatLeavesNoRoomForAnother) {
  for (const std::size_t length : {248U, 249U, 250U, 255U}) {
    const std::string file = directory_.file(std::string(length, 'n'));
    writeFile(file, "[A]\nk=v\n");
    EXPECT_EQ(save(file, "w"), 0) << length;
    EXPECT_EQ(readFile(file), "[A]\nk=w\n") << length;
  }
}

TEST_F(IniOverwrite, SavesAFileThatIsAMountPoint) {
  const std::string real = directory_.file("real/agent.cfg");
  writeFile(real, "[A]\nk=v\n");
  const int status = qov::test::endOfChild([&] {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount(real.c_str(), file_.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      ::_exit(kNoRight);
    }
    return save(file_, "w") == 0;
  });
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kNoRight) {
    GTEST_SKIP() << "no right to mount";
  }
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(readFile(real), "[A]\nk=w\n");
  EXPECT_EQ(filesInDirectory(), 2) << "with the directory of the real one";
}

TEST_F(IniOverwrite, PutsTheFormerContentBackWhenTheNewOneHasNoRoom) {
  const std::string file = directory_.file(std::string(250, 'n'));
  const std::string before = "[A]\nk=" + std::string(3000, 'o') + "\n";
  writeFile(file, before);
  EXPECT_EQ(runWithSmallFiles(before.size() + 10, SIG_IGN,
                              [&] {
                                return save(file, std::string(4000, 'n')) == -1 &&
                                       save(file, std::string(3005, 'n')) == 0 &&
                                       save(file, std::string(3000, 'o')) == 0 &&
                                       save(file, std::string(4000, 'n')) == -1;
                              }),
            0);
  EXPECT_EQ(readFile(file), before);
}

}  // namespace
