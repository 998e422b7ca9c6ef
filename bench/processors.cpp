#include "bench/processors.h"

#include <sched.h>

#include <filesystem>
#include <string>

namespace {

cpu_set_t allowed() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  ::sched_getaffinity(0, sizeof processors, &processors);
  return processors;
}

/// The first `count` of `all`.
cpu_set_t firstOf(const cpu_set_t& all, int count) {
  cpu_set_t chosen;
  CPU_ZERO(&chosen);
  for (int i = 0; i < CPU_SETSIZE && CPU_COUNT(&chosen) < count; ++i) {
    if (CPU_ISSET(i, &all)) {
      CPU_SET(i, &chosen);
    }
  }
  return chosen;
}

}  // namespace

bool useProcessors(benchmark::State& state, int count) {
  static const cpu_set_t all = allowed();
  if (CPU_COUNT(&all) < count) {
    state.SkipWithError("too few processors");
    return false;
  }
  const cpu_set_t chosen = firstOf(all, count);
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    ::sched_setaffinity(std::stoi(thread.path().filename()), sizeof chosen, &chosen);
  }
  return true;
}
