#ifndef QOV_TESTS_DIAG_PROCESS_ROOT_H
#define QOV_TESTS_DIAG_PROCESS_ROOT_H

#include <qovpub/qov_utility.h>

#include <cstdlib>
#include <string>

#include "tests/support/files.h"

/// The installation root of this test program, and its configuration. The library reads the root
/// once per process, so there is one for all tests.
class ProcessRoot {
 public:
  /// Makes `logCfg`, lines of "key=value", the section "LOG_CFG".
  static void configure(const std::string& logCfg) {
    directory();
    qov::test::writeFile(cfgFile(), "[QOV_GLOBAL]\nPROC_PID=1\n[LOG_CFG]\n" + logCfg);
  }

  static std::string cfgFile() {
    std::string name;
    CProcInfo::getProcName(name);
    return directory().file("conf/" + name + "/" + name + ".cfg");
  }

 private:
  static const qov::test::TemporaryDirectory& directory() {
    static const qov::test::TemporaryDirectory root;
    static const int set = ::setenv("QOV_ROOT", root.path().c_str(), 1);
    static_cast<void>(set);
    return root;
  }
};

#endif
