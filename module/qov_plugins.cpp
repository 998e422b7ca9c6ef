#include <qovpub/qov_plugins.h>

#include <ace/Guard_T.h>

#include <cerrno>
#include <cstring>
#include <new>

#include <qovpub/qov_common_debugkit.h>

#include "module/dll_manager.h"

namespace {

using Guard = ACE_Guard<ACE_Thread_Mutex>;

void closePlugin(const ACE_DLL_Handle& dll, CQOVDebugKitGuard& guard) {
  guard.info(65593, __FUNCTION__, __LINE__, "Remove plugin name is %s!", dll.dll_name());
  qov::dllManager().close_dll(dll.dll_name());
}

bool bind(CQOV_PluginOperator& op, ACE_DLL_Handle* dll) {
  try {
    return op.init(dll);
  } catch (...) {
    // The caller's code; whatever it throws, the plug-in is not bound.
    return false;
  }
}

}  // namespace

CQOV_PluginOperator::~CQOV_PluginOperator() = default;

std::atomic<CQOV_Plugins*> CQOV_Plugins::pInstance_{nullptr};
ACE_Thread_Mutex CQOV_Plugins::oSingLetonMutex_;

CQOV_Plugins::CQOV_Plugins() = default;

CQOV_Plugins::~CQOV_Plugins() {
  clear();
}

CQOV_Plugins* CQOV_Plugins::instance() {
  CQOV_Plugins* plugins = pInstance_.load(std::memory_order_acquire);
  if (plugins == nullptr) {
    const Guard lock(oSingLetonMutex_);
    plugins = pInstance_.load(std::memory_order_relaxed);
    if (plugins == nullptr) {
      plugins = new (std::nothrow) CQOV_Plugins;
      if (plugins == nullptr) {
        errno = ENOMEM;
      }
      pInstance_.store(plugins, std::memory_order_release);
    }
  }
  return plugins;
}

void CQOV_Plugins::close() {
  const Guard lock(oSingLetonMutex_);
  delete pInstance_.load(std::memory_order_relaxed);
  pInstance_.store(nullptr, std::memory_order_release);
}

bool CQOV_Plugins::open(const char* name, CQOV_PluginOperator& op, u_int id) {
  CQOVDebugKitGuard guard(0, "bool CQOV_Plugins::open(const char*, CQOV_PluginOperator&, u_int)");
  if (name == nullptr) {
    guard.warn(65590, __FUNCTION__, __LINE__, "Invalid parameter, plugin name is null!");
    return false;
  }
  ACE_DLL_Handle* const dll = qov::openLibrary(name);
  if (dll == nullptr) {
    guard.warn(65591, __FUNCTION__, __LINE__, "Failed to open %s", name);
    return false;
  }
  // What the table takes is made first: once `op` is bound nothing may fail any more.
  Table entry;
  try {
    entry.emplace(id, dll);
  } catch (const std::bad_alloc&) {
    guard.warn(65591, __FUNCTION__, __LINE__, "Failed to open %s", name);
    qov::dllManager().close_dll(dll->dll_name());
    errno = ENOMEM;
    return false;
  }
  if (!bind(op, dll)) {
    guard.warn(65592, __FUNCTION__, __LINE__, "Failed to init %s", name);
    qov::dllManager().close_dll(dll->dll_name());
    return false;
  }
  guard.info(65594, __FUNCTION__, __LINE__, "Load plugin name is %s!", name);
  const Guard lock(lock_);
  plugins_.merge(entry);
  return true;
}

void CQOV_Plugins::remove(u_int id) {
  CQOVDebugKitGuard guard(0, "void CQOV_Plugins::remove(u_int)");
  const Guard lock(lock_);
  const auto range = plugins_.equal_range(id);
  for (auto plugin = range.first; plugin != range.second; ++plugin) {
    closePlugin(*plugin->second, guard);
  }
  plugins_.erase(range.first, range.second);
}

void CQOV_Plugins::remove(const char* name) {
  CQOVDebugKitGuard guard(0, "void CQOV_Plugins::remove(const char*)");
  if (name == nullptr) {
    guard.warn(65595, __FUNCTION__, __LINE__, "Invalid parameter, plugin name is null!");
    return;
  }
  const Guard lock(lock_);
  for (auto plugin = plugins_.begin(); plugin != plugins_.end(); ++plugin) {
    if (std::strcmp(plugin->second->dll_name(), name) == 0) {
      closePlugin(*plugin->second, guard);
      plugins_.erase(plugin);
      return;
    }
  }
}

void CQOV_Plugins::clear() {
  CQOVDebugKitGuard guard(0, "void CQOV_Plugins::clear()");
  const Guard lock(lock_);
  for (const auto& plugin : plugins_) {
    closePlugin(*plugin.second, guard);
  }
  plugins_.clear();
}
