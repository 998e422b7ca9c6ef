#ifndef QOV_TESTS_MODULE_MODULE_FIXTURE_H
#define QOV_TESTS_MODULE_MODULE_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include <qovpub/qov_module_loader.h>

#include "tests/module/libs/events.h"
#include "tests/module/process_log.h"
#include "tests/support/this_process.h"

namespace qov::test {

/// A loader of its own, what it and its modules log, and the events of the test modules.
class ModuleTest : public ::testing::Test {
 protected:
  ModuleTest() {
    resetEvents();
    thisProcess().removeModules();
  }
  ~ModuleTest() override { openGate(); }

  void loads(std::initializer_list<const char*> modules) {
    mark(modules);
    ASSERT_TRUE(loader().load()) << log.text();
  }

  void mark(std::initializer_list<const char*> modules) {
    for (const char* const module : modules) {
      thisProcess().addModule(std::string("qovt_") + module);
    }
  }

  CQOV_Module_Loader& loader() { return *loader_; }
  void destroyLoader() { loader_.reset(); }

  /// Sends a block that means nothing to a leader, which releases it.
  static bool sendsIgnored(CQOV_Module_Loader& to, u_short gid);

  std::vector<std::string> messages(const char* tag) const { return log.messages(tag); }

  /// The entries and leaves that `operation` traces on this thread.
  static std::vector<std::string> tracesOf(const std::function<void()>& operation);

  /// How often the library `name` is open. ACE keeps a closed library's handle.
  static int timesOpen(const std::string& name);

  ProcessLog log{ProcessLog::kAllLevels & ~static_cast<u_long>(LM_TRACE)};

 private:
  std::unique_ptr<CQOV_Module_Loader> loader_ = std::make_unique<CQOV_Module_Loader>();
};

}  // namespace qov::test

#endif
