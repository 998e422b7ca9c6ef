#include <ace/Message_Block.h>
#include <gtest/gtest.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <thread>

#include "tests/support/child.h"
#include "tests/support/sanitizers.h"
#include "tests/support/this_process.h"

namespace {

/// Whether the next handler that is taken back finds the process at its end.
std::atomic<bool> exitsNext{false};

}  // namespace

/// In the place of the C library's for all of this program.
extern "C" void __real___cxa_finalize(void* library);
extern "C" void __wrap___cxa_finalize(void* library);
extern "C" void __wrap___cxa_finalize(void* library) {
  __real___cxa_finalize(library);
  if (exitsNext.exchange(false)) {
    std::thread([] { std::exit(1); }).join();
  }
}

#if !QOV_TEST_TSAN  // which bears no new threads in a child of several
namespace qov::test {
namespace {

class Module : public CQOV_TaskMgr {
 public:
  explicit Module(unsigned gid) : CQOV_TaskMgr(gid, 0, "module") {}
  CQOV_Task* createTask() override { return nullptr; }
};

/// Of the child, until it ends.
std::optional<Module> first;
std::optional<Module> second;

bool isStopped() {
  ACE_Message_Block block(std::size_t{0});
  return first->putq(&block, nullptr) == -1;
}

TEST(ModuleShutdown, OfAnExitWhileAnotherModuleStartsStopsTheFirst) {
  thisProcess();
  EXPECT_TRUE(holdsInChild([] {
    // Runs behind what the modules register.
    std::atexit([] { ::_exit(isStopped() ? 0 : 2); });
    first.emplace(1);
    second.emplace(2);
    if (!first->init()) {
      return false;
    }
    exitsNext = true;
    second->init();
    return false;
  }));
}

}  // namespace
}  // namespace qov::test
#endif
