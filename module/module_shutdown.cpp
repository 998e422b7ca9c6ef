#include "module/module_shutdown.h"

#include <cxxabi.h>
#include <unistd.h>

#include <atomic>
#include <type_traits>

#include <qovpub/qov_leader_task.h>

#include "module/module_table.h"
#include "module/shutdown_watch.h"
#include "task/leader_turn.h"
#include "task/running_managers.h"
#include "task/thread_groups.h"

namespace qov {
namespace {

// Exit handlers are kept for each library, and all of a library's are run and forgotten when it
// goes. Each token stands for a library that has nothing but this one handler: to let it go is the
// only way to take a handler back. There are two, so that a later registration stands before the
// former one is taken back: an exit() on another thread always finds one.
char tokens[2];

/// Of the last registration; guarded by `registration`.
int current = 0;

std::mutex registration;

/// Whether this thread is taking its registration back, which runs the handler once.
thread_local bool takingBack = false;

/// That of the last registration; 0 before the first one.
std::atomic<pid_t> process{0};

void takeBack(char& token) {
  takingBack = true;
  abi::__cxa_finalize(&token);
  takingBack = false;
}

}  // namespace

std::recursive_mutex ModuleShutdown::turn;
// Threads may wait for it until the process is gone.
static_assert(std::is_trivially_destructible_v<std::recursive_mutex>);

bool ModuleShutdown::isForkedChild() {
  return process != 0 && process != ::getpid();
}

bool ModuleShutdown::mayStop() {
  return !isForkedChild() && getCurrentTask() == nullptr && !runsInModuleGroup() &&
         !LeaderTurn::anyIsMine();
}

void ModuleShutdown::stopModules() {
  if (CQOV_Module_Loader* const loader =
          ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>::instance()) {
    loader->unload();
    loader->table_->stopLeftovers();
  }
}

void ModuleShutdown::stopAll() {
  if (mayStop()) {
    const ShutdownWatch watch;
    stopModules();
  }
}

void ModuleShutdown::end(void*) {
  if (takingBack || !mayStop()) {
    return;
  }
  // Whether or not a manager runs: another thread may hang in the end of the last one, with `turn`
  // held. Where nothing was left, forgetWhenIdle() has taken this handler back.
  const ShutdownWatch watch;
  // exit() in a module's start has left this thread in the middle of that, with the table held.
  CQOV_Module_Loader::ModuleTable::endInterruptedLoad();
  turn.lock();
  stopModules();
  RunningManagers::stopAll();
}

void ModuleShutdown::stopAtExit() {
  const std::lock_guard<std::mutex> held(registration);
  process = ::getpid();
  // Without memory the former one stays, if there is one: then modules still end, but after the
  // static objects of libraries that were opened since.
  if (abi::__cxa_atexit(&end, nullptr, &tokens[1 - current]) == 0) {
    takeBack(tokens[current]);
    current = 1 - current;
  }
}

void ModuleShutdown::forgetWhenIdle() {
  const std::lock_guard<std::mutex> held(registration);
  if (!RunningManagers::any()) {
    takeBack(tokens[current]);
  }
}

}  // namespace qov
