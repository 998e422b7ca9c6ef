#include <fcntl.h>
#include <qovpub/qov_ini_operator.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "tests/config/ini_file.h"
#include "tests/support/child.h"

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

// What a save asks of the system, in order, and which of it is to fail.
struct Disk {
  std::string fails;
  std::vector<std::string> log;
  std::vector<std::string> inheritable;  // what a child started at the renaming would get
};
Disk disk;

std::string nameOfDescriptor(const std::string& descriptor) {
  std::error_code gone;
  return fs::read_symlink("/proc/self/fd/" + descriptor, gone).string();
}

bool step(const char* name, const std::string& subject) {
  disk.log.push_back(std::string(name) + " " + subject);
  if (disk.fails == name) {
    errno = EIO;
    return false;
  }
  return true;
}

void listInheritable(const std::string& directory) {
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    const std::string descriptor = entry.path().filename();
    const std::string name = nameOfDescriptor(descriptor);
    if (name.compare(0, directory.size(), directory) == 0 &&
        (::fcntl(std::stoi(descriptor), F_GETFD) & FD_CLOEXEC) == 0) {
      disk.inheritable.push_back(name);
    }
  }
}

}  // namespace

// In the place of the system's, so that they can be seen and made to fail.
extern "C" int rename(const char* from, const char* to) noexcept {
  if (!step("rename", from)) {
    return -1;
  }
  listInheritable(fs::path(to).parent_path());
  return ::renameat(AT_FDCWD, from, AT_FDCWD, to);
}

extern "C" int fsync(int descriptor) {
  return step("fsync", nameOfDescriptor(std::to_string(descriptor)))
             ? static_cast<int>(::syscall(SYS_fsync, descriptor))
             : -1;
}

namespace {

class IniSave : public IniFile {
 protected:
  IniSave() {
    disk = Disk();
    write("[A]\nk=v\nquoted=\" x \"\n");
  }

  // That `value` is not saved while `step` fails, and that the old file stays.
  void expectTheOldFileWhen(const std::string& failing) {
    const std::string before = content();
    CQOV_Ini_Operator ini;
    ASSERT_EQ(ini.open(file_.c_str()), 0);
    disk.fails = failing;
    EXPECT_EQ(ini.setConfigItem("A", "k", "w"), -1);
    disk.fails.clear();
    EXPECT_EQ(content(), before);
    EXPECT_EQ(filesInDirectory(), 1) << "the unfinished file is removed";
    EXPECT_EQ(ini.setConfigItem("A", Items{}), 0);
    EXPECT_EQ(read("A", "k"), "w");
  }

  // That `value` is refused, and nothing happens to the file or in memory.
  void expectRefused(const std::string& key, const std::string& value) {
    const std::string before = content();
    CQOV_Ini_Operator ini;
    ASSERT_EQ(ini.open(file_.c_str()), 0);
    EXPECT_EQ(ini.setConfigItem("A", key.c_str(), value), -1);
    EXPECT_EQ(valueOf(ini, "A", key.c_str()), key == "k" ? "v" : "(none)");
    EXPECT_EQ(content(), before);
  }
};

// More than one buffer of the exporter, so that a save needs several writes.
std::string largeContent(char fill) {
  std::string content = "[A]\n";
  for (int i = 0; i < 40; ++i) {
    content += "key" + std::to_string(i) + "=" + std::string(1000, fill) + "\n";
  }
  return content;
}

}  // namespace

TEST_F(IniSave, GivesBackEveryValueAsItWasSet) {
  for (const std::string value :
       {"", " ", "  lead", "trail\t", "\"quoted\"", "\"", "\"\"", "\"half", "half\"", "a=b", "; no",
        "# no", "[no]", "back\\slash\\n", "\\", "'s'", "\xC3\xA9", "100 %s %d", "\" x \""}) {
    ASSERT_EQ(set("new", value), 0) << value;
    EXPECT_EQ(read("A", "new"), value);
    ASSERT_EQ(set("k", value), 0) << value;
    EXPECT_EQ(read("A", "k"), value);
  }
}

TEST_F(IniSave, KeepsTheBlanksAndQuotesOfValuesItDoesNotTouch) {
  write("[A]\na=\" x \"\nb=\"\"q\"\"\n[B/C]\nd=\" y\"\n");
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(set("k", std::to_string(i)), 0);
  }
  EXPECT_EQ(read("A", "a"), " x ");
  EXPECT_EQ(read("A", "b"), "\"q\"");
  EXPECT_EQ(read("B\\C", "d"), " y");
}

TEST_F(IniSave, GoesOnWithPlainValuesAfterASave) {
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(file_.c_str()), 0);
  ASSERT_EQ(ini.setConfigItem("A", "k", " v "), 0);
  EXPECT_EQ(valueOf(ini, "A", "k"), " v ");
  EXPECT_EQ(valueOf(ini, "A", "quoted"), " x ");
}

TEST_F(IniSave, RefusesAValueWithALineBreak) {
  expectRefused("k", "two\nlines");
  expectRefused("k", "\n");
  expectRefused("k", "ends\n");
  expectRefused("k", "carriage\rreturn");
  expectRefused("new", "x\n[OTHER]\nk=v");
}

TEST_F(IniSave, RefusesAValueWithAZeroByte) {
  expectRefused("k", std::string("a\0b", 3));
}

TEST_F(IniSave, RefusesAKeyThatTheFileCannotHold) {
  for (const char* key : {"", "a=b", ";a", "#a", "[a", "a]", "a\\b", " a", "a ", "a\tb\n", "\t"}) {
    expectRefused(key, "v");
  }
}

TEST_F(IniSave, RefusesAKeyWithAZeroByteInAList) {
  const std::string before = content();
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(file_.c_str()), 0);
  EXPECT_EQ(ini.setConfigItem("A", Items{{std::string("k\0x", 3), "w"}}), -1);
  EXPECT_EQ(valueOf(ini, "A", "k"), "v");
  EXPECT_EQ(content(), before);
}

TEST_F(IniSave, TakesAKeyWithSpecialCharactersInside) {
  for (const std::string key : {"a b", "a;b", "a#", "a/b", "\"a\"", "a.b", "\xC3\xA9"}) {
    EXPECT_EQ(set(key, "v"), 0) << key;
    EXPECT_EQ(read("A", key.c_str()), "v") << key;
  }
}

TEST_F(IniSave, TakesKeyAndValueOf4094BytesAndNotMore) {
  const std::string longest(4093, 'x');
  EXPECT_EQ(set("k", longest), 0);
  EXPECT_EQ(read("A", "k"), longest);
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(file_.c_str()), 0);
  EXPECT_EQ(ini.setConfigItem("A", "k", longest + "x"), -1);
  EXPECT_EQ(ini.setConfigItem("A", "k", longest.substr(0, 4092) + " "), -1)
      << "it needs quotes in the file";
  EXPECT_EQ(ini.setConfigItem("A", "k", longest.substr(0, 4090) + " "), 0);
  EXPECT_EQ(read("A", "k"), longest.substr(0, 4090) + " ");
}

TEST_F(IniSave, TakesAKeyOf255BytesAndNotMore) {
  EXPECT_EQ(set(std::string(255, 'k'), "v"), 0);
  expectRefused(std::string(256, 'k'), "v");
}

TEST_F(IniSave, LeavesNothingElseInTheDirectory) {
  ASSERT_EQ(set("k", "w"), 0);
  EXPECT_EQ(filesInDirectory(), 1);
}

TEST_F(IniSave, ReplacesTheFileInsteadOfWritingIntoIt) {
  const int reader = ::open(file_.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  const std::string before = content();
  ASSERT_EQ(set("k", "w"), 0);
  std::string seen(before.size() + 100, '\0');
  const ssize_t length = ::read(reader, seen.data(), seen.size());
  ::close(reader);
  ASSERT_GE(length, 0);
  EXPECT_EQ(seen.substr(0, static_cast<std::size_t>(length)), before)
      << "who has the old file open still reads all of it";
}

TEST_F(IniSave, KeepsTheOldFileWhenThereIsNoRoomForTheNewOne) {
  const std::string small = content();
  for (const std::string& before : {small, largeContent('o')}) {
    write(before);
    // The small one goes to the disk only when the exporter closes it.
    const int status =
        runWithSmallFiles(before.size() / 2, SIG_IGN, [this] { return set("k", "new") == -1; });
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(content(), before);
    EXPECT_EQ(filesInDirectory(), 1) << "the unfinished file is removed";
  }
}

TEST_F(IniSave, KeepsTheOldFileWhenTheProcessIsKilledInTheMiddle) {
  write(largeContent('o'));
  const std::string before = content();
  const int status = runWithSmallFiles(4096, SIG_DFL, [this] { return set("key1", "new") == 0; });
  ASSERT_TRUE(WIFSIGNALED(status)) << "the save must have been under way";
  EXPECT_EQ(WTERMSIG(status), SIGXFSZ);
  EXPECT_EQ(content(), before);
  EXPECT_EQ(set("key1", "new"), 0) << "what is left behind does not disturb the next save";
  EXPECT_EQ(read("A", "key1"), "new");
}

TEST_F(IniSave, LetsReadersFindAWholeFileAtAnyTime) {
  write(largeContent('o'));
  std::thread writer([this] {
    for (int i = 0; i < 20; ++i) {
      EXPECT_EQ(set("key1", std::string(1000, i % 2 == 0 ? 'n' : 'o')), 0);
    }
  });
  for (int i = 0; i < 200; ++i) {
    CQOV_Ini_Operator ini;
    Items items;
    EXPECT_EQ(ini.open(file_.c_str()), 0);
    EXPECT_EQ(ini.enumerateSections("A", items), 0);
    EXPECT_EQ(items.size(), 40u);
  }
  writer.join();
}

TEST_F(IniSave, KeepsPermissionsWhateverTheModeMask) {
  for (const mode_t mode : {0600U, 0640U, 0664U}) {
    ASSERT_EQ(::chmod(file_.c_str(), mode), 0);
    const mode_t mask = ::umask(0);
    EXPECT_EQ(set("k", "w"), 0);
    ::umask(mask);
    EXPECT_EQ(statusOf(file_).st_mode & 07777, mode);
  }
}

TEST_F(IniSave, KeepsOwnerAndGroup) {
  QOV_SKIP_UNLESS_ROOT();
  ASSERT_EQ(::chown(file_.c_str(), kStranger, kStrangersGroup), 0);
  EXPECT_EQ(set("k", "w"), 0);
  EXPECT_EQ(statusOf(file_).st_uid, kStranger);
  EXPECT_EQ(statusOf(file_).st_gid, kStrangersGroup);
}

TEST_F(IniSave, RefusesAFileThatItsUserMayNotWriteAlthoughTheDirectoryWouldLetIt) {
  QOV_SKIP_UNLESS_ROOT();
  fs::permissions(directory_.path(), fs::perms::all);
  const std::string before = content();
  ASSERT_EQ(::chmod(file_.c_str(), 0644), 0);
  EXPECT_TRUE(holdsAsStranger([this] { return set("k", "w") == -1; })) << "no right to write";
  ASSERT_EQ(::chown(file_.c_str(), kStranger, kStrangersGroup), 0);
  ASSERT_EQ(::chmod(file_.c_str(), 0444), 0);
  EXPECT_TRUE(holdsAsStranger([this] { return set("k", "w") == -1; })) << "write-protected";
  EXPECT_EQ(content(), before);
  ASSERT_EQ(::chmod(file_.c_str(), 0644), 0);
  EXPECT_TRUE(holdsAsStranger([this] { return set("k", "w") == 0; }));
  EXPECT_EQ(read("A", "k"), "w");
  EXPECT_EQ(filesInDirectory(), 1);
}

TEST_F(IniSave, FollowsASymbolicLink) {
  const std::string real = directory_.file("real/agent.cfg");
  writeFile(real, content());
  fs::remove(file_);
  fs::create_symlink("real/agent.cfg", file_);
  EXPECT_EQ(set("k", "w"), 0);
  EXPECT_TRUE(fs::is_symlink(file_));
  EXPECT_NE(readFile(real).find("k=w\n"), std::string::npos);
}

TEST_F(IniSave, WorksWithARelativeName) {
  const fs::path before = fs::current_path();
  fs::current_path(directory_.path());
  CQOV_Ini_Operator ini;
  EXPECT_EQ(ini.open("agent.cfg"), 0);
  EXPECT_EQ(ini.setConfigItem("A", "k", "w"), 0);
  fs::current_path(before);
  EXPECT_EQ(read("A", "k"), "w");
}

TEST_F(IniSave, MakesTheFileAnewWhenItIsGone) {
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(file_.c_str()), 0);
  fs::remove(file_);
  const mode_t mask = ::umask(0);
  EXPECT_EQ(ini.setConfigItem("A", "k", "w"), 0);
  ::umask(mask);
  EXPECT_EQ(read("A", "k"), "w");
  EXPECT_EQ(statusOf(file_).st_mode & 07777, 0644u)
      << "not writable by everybody, whatever the mode mask";
}

TEST_F(IniSave, MakesAFileAnewUnderTheFileModeMask) {
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(file_.c_str()), 0);
  for (const mode_t mask : {077U, 027U, 022U}) {
    fs::remove(file_);
    const mode_t before = ::umask(mask);
    EXPECT_EQ(ini.setConfigItem("A", "k", "w"), 0);
    ::umask(before);
    EXPECT_EQ(statusOf(file_).st_mode & 07777, 0644 & ~mask);
  }
}

TEST_F(IniSave, WritesWhatItHasReadWhenTheFileWasNotReadWhole) {
  write("[A]\nk=v\nno equals sign\n[B]\nlost=1\n");
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(file_.c_str()), -1);
  EXPECT_EQ(ini.setConfigItem("A", "k", "w"), 0);
  EXPECT_EQ(content(), "[A]\nk=w\n");
}

TEST_F(IniSave, MakesAFileThatWasMissingWhenItWasOpened) {
  fs::remove(file_);
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(file_.c_str()), -1);
  EXPECT_EQ(ini.setConfigItem("A", "k", "w"), -1) << "there is no section";
  EXPECT_FALSE(fs::exists(file_));
  EXPECT_EQ(ini.setConfigItem("A", Items{}), 0);
  EXPECT_EQ(content(), "");
}

TEST_F(IniSave, KeepsTheOldFileWhenTheNewOneCannotTakeItsPlace) {
  expectTheOldFileWhen("rename");
}

TEST_F(IniSave, KeepsTheOldFileWhenTheNewOneDoesNotReachTheDisk) {
  expectTheOldFileWhen("fsync");
}

TEST_F(IniSave, PutsTheFormerContentBackWhenItCannotBeReplacedAndTheNewOneDoesNotReachTheDisk) {
  const std::string longName = directory_.file(std::string(250, 'n'));
  fs::rename(file_, longName);
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(longName.c_str()), 0);
  const std::string before = readFile(longName);
  disk.fails = "fsync";
  EXPECT_EQ(ini.setConfigItem("A", "k", "longer than before"), -1);
  EXPECT_EQ(readFile(longName), before);
  disk.fails.clear();
  EXPECT_EQ(ini.setConfigItem("A", Items{}), 0);
  EXPECT_NE(readFile(longName).find("k=longer than before\n"), std::string::npos);
}

TEST_F(IniSave, BringsTheNewFileToTheDiskBeforeItTakesThePlaceOfTheOldOne) {
  ASSERT_EQ(set("k", "w"), 0);
  ASSERT_EQ(disk.log.size(), 3u);
  const std::string temporary = disk.log[1].substr(std::string("rename ").size());
  EXPECT_EQ(disk.log[0], "fsync " + temporary);
  EXPECT_EQ(disk.log[1], "rename " + temporary);
  EXPECT_EQ(disk.log[2], "fsync " + directory_.path().string());
}

TEST_F(IniSave, LeavesItsOwnDescriptorsToNoChild) {
  ASSERT_EQ(set("k", "w"), 0);
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(file_.c_str()), 0);
  fs::remove(file_);
  ASSERT_EQ(ini.setConfigItem("A", "k", "w"), 0);
  EXPECT_EQ(disk.inheritable, std::vector<std::string>());
}

TEST_F(IniSave, UndoesWhatAnotherOperatorHasSavedSinceItWasOpened) {
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(file_.c_str()), 0);
  ASSERT_EQ(set("k", "of another"), 0);
  EXPECT_EQ(ini.setConfigItem("A", "new", "w"), 0);
  EXPECT_EQ(read("A", "k"), "v");
}

TEST_F(IniSave, FailsWhenThereIsNoPlaceForTheFileAndKeepsTheChangeInMemory) {
  const std::string other = directory_.file("sub/agent.cfg");
  writeFile(other, content());
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(other.c_str()), 0);
  fs::remove_all(directory_.path() / "sub");
  EXPECT_EQ(ini.setConfigItem("A", "k", "w"), -1);
  EXPECT_EQ(valueOf(ini, "A", "k"), "w");
  fs::create_directory(directory_.path() / "sub");
  EXPECT_EQ(ini.setConfigItem("A", Items{}), 0);
  EXPECT_NE(readFile(other).find("k=w\n"), std::string::npos);
}

TEST_F(IniSave, ReplacesNothingThatIsNoRegularFile) {
  CQOV_Ini_Operator ini;
  ASSERT_EQ(ini.open(file_.c_str()), 0);
  fs::remove(file_);
  ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
  EXPECT_EQ(ini.setConfigItem("A", "k", "w"), -1);
  EXPECT_TRUE(fs::is_fifo(file_));
  fs::remove(file_);
  fs::create_symlink("nowhere", file_);
  EXPECT_EQ(ini.setConfigItem("A", "k", "w"), -1) << "a link that leads nowhere";
  EXPECT_EQ(filesInDirectory(), 1);
}
