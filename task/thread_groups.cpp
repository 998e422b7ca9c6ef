#include "task/thread_groups.h"

#include <ace/Thread_Manager.h>

#include <algorithm>
#include <new>
#include <vector>

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

std::vector<ACE_thread_t> plainThreads(int group) {
  ACE_Thread_Manager& threads = *ACE_Thread_Manager::instance();
  std::vector<ACE_thread_t> ids;
  try {
    ids.resize(threads.count_threads());
  } catch (const std::bad_alloc&) {
    return ids;
  }
  const auto count = threads.thread_list(nullptr, ids.data(), ids.size());
  ids.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  const auto elsewhere = [&](ACE_thread_t id) {
    int its = -1;
    return threads.get_grp(id, its) == -1 || its != group;
  };
  ids.erase(std::remove_if(ids.begin(), ids.end(), elsewhere), ids.end());
  return ids;
}

}  // namespace

std::size_t plainThreadsIn(int group) {
  return plainThreads(group).size();
}

void joinPlainThreads(int group) {
  ACE_Thread_Manager& threads = *ACE_Thread_Manager::instance();
  for (bool joined = true; joined;) {
    joined = false;
    for (const ACE_thread_t id : plainThreads(group)) {
      joined = threads.join(id) == 0 || joined;
    }
  }
  if (threads.num_tasks_in_group(group) == 0) {
    // What is left in the group has ended; ACE keeps it until somebody joins it.
    threads.wait_grp(group);
  }
}

}  // namespace qov
