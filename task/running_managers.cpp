#include "task/running_managers.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "frame/env/current_step.h"
#include "module/module_shutdown.h"
#include "task/dispatcher.h"
#include "task/module_context.h"

namespace qov {

namespace {

struct Running {
  CQOV_TaskMgr* manager;
  bool stops = false;
};

struct Registry {
  std::mutex mutex;
  std::condition_variable changed;
  // Guarded by mutex.
  std::vector<Running> managers;
  /// What stopAll() is stopping, on which thread.
  CQOV_TaskMgr* stopping = nullptr;
  std::thread::id stopper;
};

Registry& registry() {
  // Never destroyed: managers may go after every static object.
  static Registry& only = *new Registry;
  return only;
}

/// The manager that was added last and does not stop; null when none is left.
CQOV_TaskMgr* takeNext() {
  Registry& all = registry();
  const std::lock_guard<std::mutex> held(all.mutex);
  const auto next = std::find_if(all.managers.rbegin(), all.managers.rend(),
                                 [](const Running& running) { return !running.stops; });
  const bool found = next != all.managers.rend();
  all.stopping = found ? next->manager : nullptr;
  all.stopper = std::this_thread::get_id();
  all.changed.notify_all();
  if (found) {
    next->stops = true;
  }
  return all.stopping;
}

}  // namespace

void RunningManagers::add(CQOV_TaskMgr& manager) {
  Registry& all = registry();
  {
    const std::lock_guard<std::mutex> held(all.mutex);
    all.managers.push_back({&manager});
  }
  // ACE's own exit handler is older, so this one comes before it.
  ModuleShutdown::stopAtExit();
}

void RunningManagers::beginStop(CQOV_TaskMgr& manager) {
  Registry& all = registry();
  std::unique_lock<std::mutex> held(all.mutex);
  for (Running& running : all.managers) {
    running.stops = running.stops || running.manager == &manager;
  }
  all.changed.wait(
      held, [&] { return all.stopping != &manager || all.stopper == std::this_thread::get_id(); });
}

void RunningManagers::remove(CQOV_TaskMgr& manager) {
  Registry& all = registry();
  const std::lock_guard<std::mutex> held(all.mutex);
  all.managers.erase(
      std::remove_if(all.managers.begin(), all.managers.end(),
                     [&](const Running& running) { return running.manager == &manager; }),
      all.managers.end());
}

bool RunningManagers::any() {
  Registry& all = registry();
  const std::lock_guard<std::mutex> held(all.mutex);
  return all.stopping != nullptr ||
         std::any_of(all.managers.begin(), all.managers.end(),
                     [](const Running& running) { return !running.stops; });
}

void RunningManagers::visit(const std::function<void(const CQOV_TaskMgr&, bool stops)>& visit) {
  Registry& running = registry();
  const std::lock_guard<std::mutex> held(running.mutex);
  std::vector<Running> all = running.managers;
  std::stable_sort(all.begin(), all.end(), [](const Running& a, const Running& b) {
    return a.manager->moduleId() < b.manager->moduleId();
  });
  for (const Running& one : all) {
    visit(*one.manager, one.stops);
  }
}

std::vector<QOVModuleStats> RunningManagers::stats() {
  std::vector<QOVModuleStats> all;
  visit([&](const CQOV_TaskMgr& manager, bool stops) {
    all.push_back(ModuleContext::statsOf(manager));
    all.back().stopping_ = stops;
  });
  return all;
}

std::vector<LeaderLook> RunningManagers::leaders() {
  std::vector<LeaderLook> all;
  Registry& running = registry();
  const std::lock_guard<std::mutex> held(running.mutex);
  for (const auto& [manager, stops] : running.managers) {
    if (!stops) {
      all.push_back({manager->moduleId(), manager->name(),
                     ModuleContext::leaderOf(*manager)->dispatcher_->progress()});
    }
  }
  return all;
}

void RunningManagers::tellEnded(std::uint8_t id) {
  Registry& running = registry();
  const std::lock_guard<std::mutex> held(running.mutex);
  for (const auto& [manager, stops] : running.managers) {
    if (!stops) {
      ModuleContext::leaderOf(*manager)->dispatcher_->noteEnded(id);
    }
  }
}

void RunningManagers::stopAll() {
  while (CQOV_TaskMgr* const manager = takeNext()) {
    const CurrentStep step("stopping module %u (%s)", manager->moduleId(), manager->name().c_str());
    manager->stop();
  }
}

}  // namespace qov
