#include <fcntl.h>
#include <qovpub/qov_ini_operator.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include "tests/config/ini_file.h"
#include "tests/support/child.h"

// Saving where no file can be put in the place of the old one.

using qov::test::holdsInChild;
using qov::test::IniFile;
using qov::test::readFile;
using qov::test::writeFile;
namespace fs = std::filesystem;

namespace {

constexpr uid_t kStranger = 4001;
constexpr int kNoRight = 77;

class IniOverwrite : public IniFile {
 protected:
  IniOverwrite() { write("[A]\nk=v\n"); }

  static int set(const std::string& file, const std::string& value) {
    CQOV_Ini_Operator ini;
    return ini.open(file.c_str()) == 0 ? ini.setConfigItem("A", "k", value) : -2;
  }

  static struct stat statusOf(const std::string& file) {
    struct stat result {};
    EXPECT_EQ(::stat(file.c_str(), &result), 0);
    return result;
  }

  /// Gives the file, but not its directory, to the user as whom `body` then runs.
  template <class Body>
  bool holdsForTheOwner(Body body) {
    EXPECT_EQ(::chown(file_.c_str(), kStranger, kStranger), 0);
    fs::permissions(directory_.path(), fs::perms(0755));
    return holdsInChild(
        [&] { return ::setgid(kStranger) == 0 && ::setuid(kStranger) == 0 && body(); });
  }
};

#define QOV_SKIP_UNLESS_ROOT()                           \
  if (::geteuid() != 0) {                                \
    GTEST_SKIP() << "only root can become another user"; \
  }                                                      \
  static_assert(true)

TEST_F(IniOverwrite, SavesInADirectoryThatIsNotWritable) {
  QOV_SKIP_UNLESS_ROOT();
  ASSERT_EQ(::chmod(file_.c_str(), 0640), 0);
  const struct stat before = statusOf(file_);
  for (const std::string& value : {std::string(4000, 'x'), std::string("w")}) {
    EXPECT_TRUE(holdsForTheOwner([&] { return set(file_, value) == 0; }));
    EXPECT_EQ(content(), "[A]\nk=" + value + "\n") << "nothing is left of a longer one";
  }
  EXPECT_EQ(statusOf(file_).st_ino, before.st_ino);
  EXPECT_EQ(statusOf(file_).st_mode, before.st_mode);
  EXPECT_EQ(filesInDirectory(), 1);
}

TEST_F(IniOverwrite, RefusesAFileThatIsNotWritableEither) {
  QOV_SKIP_UNLESS_ROOT();
  ASSERT_EQ(::chmod(file_.c_str(), 0444), 0);
  EXPECT_TRUE(holdsForTheOwner([&] { return set(file_, "w") == -1; }));
  EXPECT_EQ(content(), "[A]\nk=v\n");
}

TEST_F(IniOverwrite, MakesNoFileInADirectoryThatIsNotWritable) {
  QOV_SKIP_UNLESS_ROOT();
  EXPECT_TRUE(holdsForTheOwner([&] {
    CQOV_Ini_Operator ini;
    return ini.open(directory_.file("missing.cfg").c_str()) == -1 &&
           ini.setConfigItem("A", std::list<std::pair<std::string, std::string>>()) == -1;
  }));
  EXPECT_EQ(filesInDirectory(), 1);
}

TEST_F(IniOverwrite, LeavesAForeignFileToItsOwner) {
  QOV_SKIP_UNLESS_ROOT();
  fs::permissions(directory_.path(), fs::perms::all);
  ASSERT_EQ(::chmod(file_.c_str(), 0666), 0);
  EXPECT_TRUE(holdsInChild([&] { return ::setuid(kStranger) == 0 && set(file_, "w") == 0; }));
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
    return set(file_, "w") == 0;
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

/// Whether a thread of this process waits for a lock of a file.
bool waitsForALock() {
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    if (line.find("-> FLOCK") != std::string::npos &&
        line.find(" " + std::to_string(::getpid()) + " ") != std::string::npos) {
      return true;
    }
  }
  return false;
}

TEST_F(IniOverwrite, WaitsForAnotherThatSaves) {
  const std::string file = directory_.file(std::string(250, 'n'));
  writeFile(file, "[A]\nk=v\n");
  const int other = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(::flock(other, LOCK_EX), 0);
  std::atomic<bool> isSaved{false};
  std::thread saver([&] {
    EXPECT_EQ(set(file, "w"), 0);
    isSaved = true;
  });
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!isSaved && !waitsForALock() && std::chrono::steady_clock::now() < giveUp) {
    std::this_thread::yield();
  }
  EXPECT_FALSE(isSaved);
  EXPECT_EQ(readFile(file), "[A]\nk=v\n");
  ::close(other);
  saver.join();
  EXPECT_EQ(readFile(file), "[A]\nk=w\n");
}

TEST_F(IniOverwrite, SavesUnderANameThatLeavesNoRoomForAnother) {
  for (const std::size_t length : {248U, 249U, 250U, 255U}) {
    const std::string file = directory_.file(std::string(length, 'n'));
    writeFile(file, "[A]\nk=v\n");
    EXPECT_EQ(set(file, "w"), 0) << length;
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
    return set(file_, "w") == 0;
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
  EXPECT_TRUE(holdsInChild([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit size{before.size() + 10, before.size() + 10};
    ::setrlimit(RLIMIT_FSIZE, &size);
    return set(file, std::string(4000, 'n')) == -1 && set(file, std::string(3005, 'n')) == 0 &&
           set(file, std::string(3000, 'o')) == 0 && set(file, std::string(4000, 'n')) == -1;
  }));
  EXPECT_EQ(readFile(file), before);
}

}  // namespace
