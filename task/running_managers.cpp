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

struct Registry {
  std::mutex mutex;
  std::condition_variable changed;
  // Guarded by mutex.
  std::vector<CQOV_TaskMgr*> managers;
  CQOV_TaskMgr* stopping = nullptr;
  std::thread::id stopper;
};

Registry& registry() {
  // Never destroyed: managers may go after every static object.
  static Registry& only = *new Registry;
  return only;
}

/// The manager that was added last; null when none is left.
CQOV_TaskMgr* takeNext() {
  Registry& all = registry();
  const std::lock_guard<std::mutex> held(all.mutex);
  all.stopping = nullptr;
  all.changed.notify_all();
  if (all.managers.empty()) {
    return nullptr;
  }
  all.stopping = all.managers.back();
  all.stopper = std::this_thread::get_id();
  all.managers.pop_back();
  return all.stopping;
}

}  // namespace

void RunningManagers::add(CQOV_TaskMgr& manager) {
  Registry& all = registry();
  {
    const std::lock_guard<std::mutex> held(all.mutex);
    all.managers.push_back(&manager);
  }
  // ACE's own exit handler is older, so this one comes before it.
  ModuleShutdown::stopAtExit();
}

void RunningManagers::remove(CQOV_TaskMgr& manager) {
  Registry& all = registry();
  std::unique_lock<std::mutex> held(all.mutex);
  all.managers.erase(std::remove(all.managers.begin(), all.managers.end(), &manager),
                     all.managers.end());
  all.changed.wait(
      held, [&] { return all.stopping != &manager || all.stopper == std::this_thread::get_id(); });
}

bool RunningManagers::any() {
  Registry& all = registry();
  const std::lock_guard<std::mutex> held(all.mutex);
  return !all.managers.empty() || all.stopping != nullptr;
}

void RunningManagers::visit(const std::function<void(const CQOV_TaskMgr&)>& visit) {
  Registry& running = registry();
  const std::lock_guard<std::mutex> held(running.mutex);
  std::vector<const CQOV_TaskMgr*> all(running.managers.begin(), running.managers.end());
  std::stable_sort(all.begin(), all.end(), [](const CQOV_TaskMgr* a, const CQOV_TaskMgr* b) {
    return a->moduleId() < b->moduleId();
  });
  for (const CQOV_TaskMgr* const manager : all) {
    visit(*manager);
  }
}

std::vector<QOVModuleStats> RunningManagers::stats() {
  std::vector<QOVModuleStats> all;
  visit([&](const CQOV_TaskMgr& manager) { all.push_back(ModuleContext::statsOf(manager)); });
  return all;
}

std::vector<LeaderLook> RunningManagers::leaders() {
  std::vector<LeaderLook> all;
  Registry& running = registry();
  const std::lock_guard<std::mutex> held(running.mutex);
  for (const CQOV_TaskMgr* const manager : running.managers) {
    all.push_back({manager->moduleId(), manager->name(),
                   ModuleContext::leaderOf(*manager)->dispatcher_->progress()});
  }
  return all;
}

void RunningManagers::tellEnded(std::uint8_t id) {
  Registry& running = registry();
  const std::lock_guard<std::mutex> held(running.mutex);
  for (const CQOV_TaskMgr* const manager : running.managers) {
    ModuleContext::leaderOf(*manager)->dispatcher_->noteEnded(id);
  }
}

void RunningManagers::stopAll() {
  while (CQOV_TaskMgr* const manager = takeNext()) {
    const CurrentStep step("stopping module %u (%s)", manager->moduleId(), manager->name().c_str());
    manager->stop();
  }
}

}  // namespace qov
