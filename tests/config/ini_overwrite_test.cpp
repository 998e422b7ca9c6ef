#include <qovpub/qov_ini_operator.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <string>

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
  for (const std::string& value : {std::string(10000, 'x').substr(0, 4000), std::string("w")}) {
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
      ::_exit(77);
    }
    return set(file_, "w") == 0;
  });
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77) {
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
