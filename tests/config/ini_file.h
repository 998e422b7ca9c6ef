#ifndef QOV_TESTS_CONFIG_INI_FILE_H
#define QOV_TESTS_CONFIG_INI_FILE_H

#include <gtest/gtest.h>
#include <qovpub/qov_ini_operator.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <list>
#include <string>
#include <utility>

#include "tests/support/child.h"
#include "tests/support/files.h"

namespace qov::test {

using Items = std::list<std::pair<std::string, std::string>>;

// A user that no system has.
constexpr uid_t kStranger = 4001;
constexpr gid_t kStrangersGroup = 4002;

#define QOV_SKIP_UNLESS_ROOT()                           \
  if (::geteuid() != 0) {                                \
    GTEST_SKIP() << "only root can become another user"; \
  }                                                      \
  static_assert(true)

/// Whether `body` gives true in a child that runs as the stranger.
template <class Body>
bool holdsAsStranger(Body body) {
  return holdsInChild(
      [&] { return ::setgid(kStrangersGroup) == 0 && ::setuid(kStranger) == 0 && body(); });
}

/// Runs `body` in a child in which no file may grow beyond `limit` bytes; how the child ended.
template <class Body>
int runWithSmallFiles(rlim_t limit, void (*onTooLarge)(int), Body body) {
  return endOfChild([&] {
    ::signal(SIGXFSZ, onTooLarge);
    const rlimit size{limit, limit};
    ::setrlimit(RLIMIT_FSIZE, &size);
    const rlimit noCore{};
    ::setrlimit(RLIMIT_CORE, &noCore);
    return body();
  });
}

/// A directory with one INI file in it, and short ways to look into it.
class IniFile : public ::testing::Test {
 protected:
  void write(const std::string& content) { writeFile(file_, content); }
  std::string content() const { return readFile(file_); }

  /// What a fresh operator reads; "(none)" for a value that cannot be read.
  std::string read(const char* section, const char* key) const {
    CQOV_Ini_Operator fresh;
    fresh.open(file_.c_str());
    return valueOf(fresh, section, key);
  }

  static std::string valueOf(CQOV_Ini_Operator& ini, const char* section, const char* key) {
    std::string value = "(none)";
    ini.getConfigItem(section, key, value);
    return value;
  }

  /// Sets `key` of section "A" through a fresh operator; -2 when that cannot open the file.
  static int setIn(const std::string& file, const std::string& key, const std::string& value) {
    CQOV_Ini_Operator ini;
    return ini.open(file.c_str()) == 0 ? ini.setConfigItem("A", key.c_str(), value) : -2;
  }
  int set(const std::string& key, const std::string& value) const {
    return setIn(file_, key, value);
  }

  static struct stat statusOf(const std::string& file) {
    struct stat result {};
    EXPECT_EQ(::stat(file.c_str(), &result), 0);
    return result;
  }

  int filesInDirectory() const {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
      static_cast<void>(entry);
      ++count;
    }
    return count;
  }

  TemporaryDirectory directory_;
  std::string file_ = directory_.file("agent.cfg");
};

}  // namespace qov::test

#endif
