#ifndef QOV_TESTS_CONFIG_INI_FILE_H
#define QOV_TESTS_CONFIG_INI_FILE_H

#include <gtest/gtest.h>
#include <qovpub/qov_ini_operator.h>

#include <list>
#include <string>
#include <utility>

#include "tests/support/files.h"

namespace qov::test {

using Items = std::list<std::pair<std::string, std::string>>;

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
