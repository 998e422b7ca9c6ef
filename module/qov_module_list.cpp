#include <cerrno>
#include <exception>
#include <new>

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_utility.h>

#include "diag/log_ids.h"
#include "frame/env/failure.h"
#include "module/module_list.h"

namespace {

/// The process configuration directory. Without a process configuration there is none to look in:
/// the reason is logged and the result is empty.
std::string configDirectory(CQOVDebugKitGuard& guard) {
  try {
    return QOV_Utility::getProcessCfgPath();
  } catch (const std::bad_alloc&) {
    guard.error(qov::log_id::kListNoMemory, __FUNCTION__, __LINE__,
                "Failed to list modules: Cannot allocate memory");
    errno = ENOMEM;
    return {};
  } catch (const std::exception& e) {
    guard.error(qov::log_id::kListNoConfiguration, __FUNCTION__, __LINE__, "%s", e.what());
    return {};
  }
}

}  // namespace

void CQOV_Module_Loader::getModuleList(std::list<std::string>& names) const {
  CQOVDebugKitGuard guard(0,
                          "void CQOV_Module_Loader::getModuleList(std::list<std::string>&) const");
  const std::string directory = configDirectory(guard);
  if (directory.empty()) {
    return;
  }
  try {
    qov::ModuleList list = qov::modulesOf(directory);
    // An editor's copies among them, hence no error.
    for (const qov::Failure& ignored : list.ignored) {
      guard.warn(qov::log_id::kMarkerIgnored, __FUNCTION__, __LINE__, "%s",
                 qov::textOf(ignored).c_str());
    }
    if (!list.isOpen) {
      guard.error(qov::log_id::kListNotOpened, __FUNCTION__, __LINE__, "Failed to open %s",
                  directory.c_str());
    }
    if (!list.failure.cause.empty()) {
      guard.error(qov::log_id::kListReason, __FUNCTION__, __LINE__, "%s",
                  qov::textOf(list.failure).c_str());
    }
    names.splice(names.end(), list.names);
  } catch (const std::bad_alloc&) {
    guard.error(qov::log_id::kListNoMemory, __FUNCTION__, __LINE__,
                "Failed to list modules of %s: Cannot allocate memory", directory.c_str());
    errno = ENOMEM;
  }
}
