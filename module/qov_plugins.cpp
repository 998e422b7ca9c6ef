#include <qovpub/qov_plugins.h>

#include <ace/Guard_T.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <new>
#include <string>

#include <qovpub/qov_common_debugkit.h>

#include "diag/log_ids.h"
#include "frame/env/failure.h"
#include "module/caught.h"
#include "module/dll_manager.h"
#include "task/ending_thread.h"

namespace {

using Guard = ACE_Guard<ACE_Thread_Mutex>;

using Table = std::multimap<u_int, ACE_DLL_Handle*>;

void closePlugins(const Table& plugins, CQOVDebugKitGuard& guard) {
  for (const auto& plugin : plugins) {
    guard.info(qov::log_id::kPluginRemoved, __FUNCTION__, __LINE__, "Remove plugin name is %s!",
               plugin.second->dll_name());
    qov::closeLibrary(*plugin.second);
  }
}

bool bind(CQOV_PluginOperator& op, ACE_DLL_Handle* dll, std::string& whyNot) {
  whyNot = "the plug-in's operator refuses it";
  try {
    return op.init(dll);
  } catch (...) {
    qov::passOnEndOfThread();
    // The caller's code; whatever it throws, the plug-in is not bound.
    whyNot = qov::caughtText();
    return false;
  }
}

/// Beside the line with the plug-in's name.
void tellReason(CQOVDebugKitGuard& guard, const char* tried, const std::string& library,
                const std::string& cause) {
  guard.warn(qov::log_id::kPluginReason, "open", __LINE__, "%s",
             qov::textOf({tried, library, 0, {}, cause}).c_str());
}

}  // namespace

CQOV_PluginOperator::~CQOV_PluginOperator() = default;

std::atomic<CQOV_Plugins*> CQOV_Plugins::pInstance_{nullptr};
ACE_Thread_Mutex CQOV_Plugins::oSingLetonMutex_;

CQOV_Plugins::CQOV_Plugins() = default;

CQOV_Plugins::~CQOV_Plugins() {
  const auto holdsPlugins = [this] {
    const Guard lock(lock_);
    return !plugins_.empty();
  };
  // Again for what static objects have opened while their libraries came and went.
  do {
    clear();
  } while (holdsPlugins());
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
  // A plug-in's static destructor runs in here and may close, too.
  static thread_local bool closing = false;
  if (closing) {
    return;
  }
  const Guard lock(oSingLetonMutex_);
  closing = true;
  // Destroyed while instance() still gives it: who asks in a static object of a library, under the
  // lock of the dynamic loader, must not wait for the mutex.
  delete pInstance_.load(std::memory_order_relaxed);
  pInstance_.store(nullptr, std::memory_order_release);
  closing = false;
}

bool CQOV_Plugins::open(const char* name, CQOV_PluginOperator& op, u_int id) {
  CQOVDebugKitGuard guard(0, "bool CQOV_Plugins::open(const char*, CQOV_PluginOperator&, u_int)");
  if (name == nullptr) {
    guard.warn(qov::log_id::kPluginNullName, __FUNCTION__, __LINE__,
               "Invalid parameter, plugin name is null!");
    return false;
  }
  std::string whyNot;
  qov::LibraryPtr dll(qov::openLibrary(name, whyNot));
  if (dll == nullptr) {
    guard.warn(qov::log_id::kPluginNotOpened, __FUNCTION__, __LINE__, "Failed to open %s", name);
    tellReason(guard, "open the library of a plug-in", name, whyNot);
    return false;
  }
  // What the table takes is made first: once `op` is bound nothing may fail any more.
  Table entry;
  try {
    entry.emplace(id, dll.get());
  } catch (const std::bad_alloc&) {
    guard.warn(qov::log_id::kPluginNotOpened, __FUNCTION__, __LINE__, "Failed to open %s", name);
    dll.reset();
    errno = ENOMEM;
    return false;
  }
  if (!bind(op, dll.get(), whyNot)) {
    guard.warn(qov::log_id::kPluginNotBound, __FUNCTION__, __LINE__, "Failed to init %s", name);
    tellReason(guard, "bind a plug-in", qov::pathOf(*dll), whyNot);
    return false;
  }
  guard.info(qov::log_id::kPluginLoaded, __FUNCTION__, __LINE__, "Load plugin name is %s!", name);
  const Guard lock(lock_);
  plugins_.merge(entry);
  static_cast<void>(dll.release());
  return true;
}

void CQOV_Plugins::remove(u_int id) {
  CQOVDebugKitGuard guard(0, "void CQOV_Plugins::remove(u_int)");
  Table removed;
  {
    const Guard lock(lock_);
    const auto range = plugins_.equal_range(id);
    for (auto plugin = range.first; plugin != range.second;) {
      removed.insert(removed.end(), plugins_.extract(plugin++));
    }
  }
  closePlugins(removed, guard);
}

void CQOV_Plugins::remove(const char* name) {
  CQOVDebugKitGuard guard(0, "void CQOV_Plugins::remove(const char*)");
  if (name == nullptr) {
    guard.warn(qov::log_id::kPluginRemoveNullName, __FUNCTION__, __LINE__,
               "Invalid parameter, plugin name is null!");
    return;
  }
  Table removed;
  {
    const Guard lock(lock_);
    const auto plugin = std::find_if(plugins_.begin(), plugins_.end(), [&](const auto& entry) {
      return std::strcmp(entry.second->dll_name(), name) == 0;
    });
    if (plugin != plugins_.end()) {
      removed.insert(plugins_.extract(plugin));
    }
  }
  closePlugins(removed, guard);
}

void CQOV_Plugins::clear() {
  CQOVDebugKitGuard guard(0, "void CQOV_Plugins::clear()");
  Table removed;
  {
    const Guard lock(lock_);
    removed.swap(plugins_);
  }
  closePlugins(removed, guard);
}
