#include "task/thread_groups.h"

#include <ace/Thread.h>
#include <ace/Thread_Manager.h>
#include <qovpub/qov_task.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <new>

namespace qov {

namespace {

/// Whether a task could not be told to end. Not errno, which what comes behind may set as well.
thread_local bool untold = false;

constexpr int kLastModule = 255;

ACE_THR_FUNC_RETURN doNothing(void*) {
  return nullptr;
}

/// Uses up ACE's numbers for modules before anybody can start a thread.
class ReservedGroups {
 public:
  ReservedGroups() {
    int taken = 0;
    for (int i = 0; i < kLastModule && taken < kLastModule; ++i) {
      // No thread, but a number.
      taken = ACE_Thread_Manager::instance()->spawn_n(0, &doNothing);
    }
  }
};

const ReservedGroups kReserved;

/// Threads that run, with zeros behind them.
using ThreadIds = std::array<ACE_thread_t, 64>;

constexpr ACE_thread_t kNobody{};

ACE_Thread_Manager& threads() {
  return *ACE_Thread_Manager::instance();
}

ThreadIds idsIn(int group) {
  ThreadIds ids{};
  threads().thread_grp_list(group, ids.data(), ids.size());
  return ids;
}

/// Ends the process here: whoever caught std::bad_alloc would go on, and hang or free what threads
/// still use.
[[noreturn]] void endWithoutMemory() {
  try {
    throw std::bad_alloc();
  } catch (const std::bad_alloc&) {
    std::terminate();
  }
}

/// `result` is that of one of ACE's waits, which copies the list of threads.
void hasJoined(int result) {
  if (result == -1 && errno == ENOMEM) {
    endWithoutMemory();
  }
}

}  // namespace

bool runsInModuleGroup() {
  int group = -1;
  return threads().get_grp(ACE_Thread::self(), group) == 0 && group >= 0 && group <= kLastModule;
}

std::size_t threadsIn(int group) {
  const ThreadIds ids = idsIn(group);
  return static_cast<std::size_t>(
      std::count_if(ids.begin(), ids.end(), [](ACE_thread_t id) { return id != kNobody; }));
}

void joinThreadsIn(int group) {
  ThreadIds before{};
  ThreadIds left = idsIn(group);
  do {
    before = left;
    hasJoined(threads().wait_grp(group));
    left = idsIn(group);
    // Who was there before is joined or cannot be. Somebody else was started meanwhile.
  } while (left != before);
}

void joinThreadsOf(CQOV_Task& task) {
  hasJoined(threads().wait_task(&task));
}

void noteUntold() {
  untold = true;
}

void tellToEnd(CQOV_Task& task) {
  untold = false;
  task.notifyExit();
  if (untold) {
    endWithoutMemory();
  }
}

}  // namespace qov
