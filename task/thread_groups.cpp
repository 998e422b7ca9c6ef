#include "task/thread_groups.h"

#include <ace/Thread_Manager.h>

#include <algorithm>
#include <array>

namespace qov {

namespace {

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

/// Threads of a group, with zeros behind them. Needs no memory, which a stop may not have.
using ThreadIds = std::array<ACE_thread_t, 64>;

ThreadIds idsIn(int group) {
  ThreadIds ids{};
  ACE_Thread_Manager::instance()->thread_grp_list(group, ids.data(), ids.size());
  return ids;
}

}  // namespace

std::size_t threadsIn(int group) {
  const ThreadIds ids = idsIn(group);
  return static_cast<std::size_t>(
      std::count_if(ids.begin(), ids.end(), [](ACE_thread_t id) { return id != ACE_thread_t{}; }));
}

void joinThreadsIn(int group) {
  ThreadIds before{};
  ThreadIds left = idsIn(group);
  do {
    before = left;
    ACE_Thread_Manager::instance()->wait_grp(group);
    left = idsIn(group);
    // Who was there before is joined or cannot be. Somebody else was started meanwhile.
  } while (left != before);
}

}  // namespace qov
