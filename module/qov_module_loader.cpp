#include <qovpub/qov_module_loader.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task_mgr.h>

#include "diag/log_ids.h"
#include "frame/env/current_step.h"
#include "frame/env/failure.h"
#include "module/caught.h"
#include "module/dll_manager.h"
#include "module/module_entry.h"
#include "module/module_library.h"
#include "module/module_shutdown.h"
#include "module/module_table.h"
#include "module/shutdown_watch.h"
#include "module/table_guards.h"
#include "task/ending_thread.h"
#include "task/module_context.h"
#include "task/running_managers.h"

template class ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>;

namespace {

using Turn = std::lock_guard<std::recursive_mutex>;

/// Beside the line with the module's name.
void tellReason(CQOVDebugKitGuard& guard, const std::string& tried, const std::string& file,
                const std::string& cause) {
  guard.error(qov::log_id::kModuleReason, "load", __LINE__, "%s",
              qov::textOf({tried, file, 0, {}, cause}).c_str());
}

}  // namespace

/// One load() on its thread.
struct CQOV_Module_Loader::ModuleTable::Loading {
  explicit Loading(ModuleTable& owner) : table(owner) { loading_ = this; }
  ~Loading() {
    if (manager != nullptr) {
      // The end of a module that has failed to start may hang as any other.
      watch.emplace();
    }
    end();
  }

  Loading(const Loading&) = delete;
  Loading& operator=(const Loading&) = delete;

  /// Gives the table back, then stops and deletes the module that is being started, if there is
  /// one: joining its threads with the table held would wait for good on a leader that waits to
  /// read.
  void end() {
    loading_ = nullptr;
    table.release();
    const Turn turn(qov::ModuleShutdown::turn);
    manager.reset();
  }

  std::optional<qov::ShutdownWatch> watch;
  std::optional<qov::CurrentStep> step;
  ManagerPtr manager;
  TableWriter table;
};

bool CQOV_Module_Loader::ModuleTable::bModuleLoaded_ = false;
thread_local CQOV_Module_Loader::ModuleTable::Loading* CQOV_Module_Loader::ModuleTable::loading_ =
    nullptr;

CQOV_Module_Loader::CQOV_Module_Loader() : table_(std::make_unique<ModuleTable>()) {}

CQOV_Module_Loader::~CQOV_Module_Loader() {
  if (qov::ModuleShutdown::mayStop()) {
    unload();
    table_->stopLeftovers();
  } else {
    table_->abandonModules();
  }
}

bool CQOV_Module_Loader::load() {
  CQOVDebugKitGuard guard(0, "bool CQOV_Module_Loader::load()");
  std::list<std::string> names;
  getModuleList(names);
  if (names.empty()) {
    guard.error(qov::log_id::kNoModules, __FUNCTION__, __LINE__,
                "Failed to load module, because module is empty!");
    return false;
  }
  return table_->load(names, guard);
}

bool CQOV_Module_Loader::ModuleTable::load(const std::list<std::string>& names,
                                           CQOVDebugKitGuard& guard) {
  bool loaded = false;
  int reason = 0;
  {
    Loading loading(*this);
    if (bModuleLoaded_) {
      return true;
    }
    reason = errno;
    try {
      loaded = loadModules(names, loading.manager, guard);
    } catch (const std::bad_alloc&) {
      reason = ENOMEM;
    }
    bModuleLoaded_ = loaded;
  }
  // Once more, for the static objects that the modules' own start has made.
  qov::ModuleShutdown::stopAtExit();
  if (!loaded) {
    errno = reason;  // not what a call on the way has left there
  }
  return loaded;
}

void CQOV_Module_Loader::ModuleTable::endInterruptedLoad() {
  if (loading_ != nullptr) {
    loading_->end();
  }
}

void CQOV_Module_Loader::ModuleTable::StopAndDelete::operator()(CQOV_TaskMgr* manager) const {
  const qov::CurrentStep step("stopping module %u (%s)", manager->moduleId(),
                              manager->name().c_str());
  // Joined before the destructor of the module's own class frees what its threads use.
  manager->stop();
  delete manager;
}

bool CQOV_Module_Loader::ModuleTable::loadModules(const std::list<std::string>& names,
                                                  ManagerPtr& manager, CQOVDebugKitGuard& guard) {
  for (const std::string& name : names) {
    loading_->step.emplace("loading module %s", name.c_str());
    // The last record when the module ends the process.
    guard.info(qov::log_id::kModuleLoading, __FUNCTION__, __LINE__, "Loading module %s",
               name.c_str());
    if (!loadModule(name, manager, guard)) {
      return false;
    }
  }
  return true;
}

bool CQOV_Module_Loader::ModuleTable::loadModule(const std::string& name, ManagerPtr& manager,
                                                 CQOVDebugKitGuard& guard) {
  ACE_DLL_Handle* dll = nullptr;
  manager = createModule(name, dll, guard);
  if (manager == nullptr) {
    return false;
  }
  // A gid of -1 (the manager could not read it) is above every valid one, too.
  const auto gid = static_cast<unsigned int>(manager->gid());
  const bool isTaken = gid <= qov::kMaxGid && modules_[gid] != nullptr;
  if (gid > qov::kMaxGid || isTaken) {
    guard.error(qov::log_id::kModuleBadGid, __FUNCTION__, __LINE__,
                "gid(%u) is invalid which module name is %s!", gid, name.c_str());
    tellReason(guard, "load module " + name, qov::pathOf(*dll),
               qov::whyInvalidGid(gid, isTaken ? modules_[gid]->dll->dll_name() : ""));
    return false;
  }
  if (!startModule(*manager, name, *dll, guard)) {
    return false;
  }
  std::unique_ptr<Entry> entry(new (std::nothrow) Entry);
  if (entry == nullptr) {
    throw std::bad_alloc();  // load() tells
  }
  entry->copies = std::move(qov::ModuleContext::of(*manager).copies_);
  if (entry->copies.any()) {
    takers_.push_back(static_cast<std::uint8_t>(gid));
  }
  entry->taskMgr = std::move(manager);
  entry->dll = dll;
  modules_[gid] = std::move(entry);
  guard.info(qov::log_id::kModuleStarted, __FUNCTION__, __LINE__, "Successed to init module %s!",
             name.c_str());
  return true;
}

CQOV_Module_Loader::ModuleTable::ManagerPtr CQOV_Module_Loader::ModuleTable::createModule(
    const std::string& name, ACE_DLL_Handle*& dll, CQOVDebugKitGuard& guard) {
  std::string whyNot;
  dll = qov::openLibrary(name.c_str(), whyNot);
  if (dll == nullptr) {
    guard.error(qov::log_id::kModuleNoLibrary, __FUNCTION__, __LINE__,
                "Failed to load module %s, because module file doesn't exist!", name.c_str());
    tellReason(guard, "open the library of module " + name, {}, whyNot);
    return nullptr;
  }
  // Whoever calls exit() from now on: the modules end before this library's static objects.
  qov::ModuleShutdown::stopAtExit();
  const auto create = reinterpret_cast<qov::CreateModule>(dll->symbol(qov::kEntryFunction));
  if (create == nullptr) {
    guard.error(qov::log_id::kModuleNoEntry, __FUNCTION__, __LINE__,
                "Failed to load module %s, because entry function %s is null!", name.c_str(),
                qov::kEntryFunction);
    tellReason(guard, "load module " + name, qov::pathOf(*dll), qov::kNoEntryFunction);
    return nullptr;
  }
  ManagerPtr manager(qov::createManager(create, whyNot));
  if (manager == nullptr) {
    guard.error(qov::log_id::kModuleNotCreated, __FUNCTION__, __LINE__,
                "Failed to load module %s, because module object is null!", name.c_str());
    tellReason(guard, "create module " + name, qov::pathOf(*dll), whyNot);
    return nullptr;
  }
  qov::ModuleLibrary::set(*manager, *dll);
  qov::ModuleLibrary::check(*manager, *manager);
  return manager;
}

bool CQOV_Module_Loader::ModuleTable::startModule(CQOV_TaskMgr& manager, const std::string& name,
                                                  ACE_DLL_Handle& dll, CQOVDebugKitGuard& guard) {
  bool started = false;
  std::string whyNot = "init() returned false";
  qov::ModuleContext::of(manager).stoppedBeforeDeleted_ = true;
  try {
    started = manager.init();
  } catch (...) {
    qov::passOnEndOfThread();
    whyNot = qov::caughtText();
  }
  if (!started) {
    guard.error(qov::log_id::kModuleInitFailed, __FUNCTION__, __LINE__, "Failed to init module %s!",
                name.c_str());
    tellReason(guard, "init module " + name, qov::pathOf(dll), whyNot);
  }
  return started;
}

void CQOV_Module_Loader::unload() {
  CQOVDebugKitGuard guard(0, "void CQOV_Module_Loader::unload()");
  table_->unload(guard);
}

void CQOV_Module_Loader::ModuleTable::unload(CQOVDebugKitGuard& guard) {
  {
    const TableWriter table(*this);
    if (!bModuleLoaded_) {
      return;
    }
    bModuleLoaded_ = false;
  }
  while (unloadFirst(guard)) {
  }
}

bool CQOV_Module_Loader::ModuleTable::unloadFirst(CQOVDebugKitGuard& guard) {
  const Turn turn(qov::ModuleShutdown::turn);
  const std::unique_ptr<Entry> entry = takeFirst();
  if (entry == nullptr) {
    return false;
  }
  const qov::CurrentStep step("unloading module %s", entry->dll->dll_name());
  entry->end();
  guard.warn(qov::log_id::kModuleUnloaded, __FUNCTION__, __LINE__, "Unload module %s!",
             entry->dll->dll_name());
  qov::ModuleShutdown::forgetWhenIdle();
  qov::closeLibrary(*entry->dll);
  return true;
}

std::unique_ptr<CQOV_Module_Loader::ModuleTable::Entry>
CQOV_Module_Loader::ModuleTable::takeFirst() {
  const TableWriter table(*this);
  const auto first = std::find_if(modules_.begin(), modules_.end(),
                                  [](const auto& slot) { return slot != nullptr; });
  if (first == modules_.end()) {
    return nullptr;
  }
  takers_.erase(std::remove(takers_.begin(), takers_.end(), first - modules_.begin()),
                takers_.end());
  return std::move(*first);
}

void CQOV_Module_Loader::ModuleTable::abandonModules() {
  // Their threads, if there are any, go on until the process is gone.
  std::optional<TableWriter> table;
  if (!qov::ModuleShutdown::isForkedChild()) {
    table.emplace(*this);
  }
  takers_.clear();
  for (std::unique_ptr<Entry>& slot : modules_) {
    if (slot != nullptr) {
      static_cast<void>(slot->taskMgr.release());
      slot.reset();
    }
  }
}

void CQOV_Module_Loader::ModuleTable::Entry::end() {
  const auto id = static_cast<std::uint8_t>(taskMgr->moduleId());
  taskMgr.reset();
  qov::RunningManagers::tellEnded(id);
}

void CQOV_Module_Loader::ModuleTable::stopLeftovers() {
  const Turn turn(qov::ModuleShutdown::turn);
  while (const std::unique_ptr<Entry> entry = takeFirst()) {
    entry->end();
  }
}
