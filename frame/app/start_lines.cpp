#include "frame/app/start_lines.h"

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_utility.h>
#include <qovpub/qov_version.h>
#include <unistd.h>

#include <string>

#include "diag/log_ids.h"
#include "diag/log_level.h"
#include "frame/app/directory_lock.h"
#include "frame/env/env_proc_files.h"
#include "frame/env/failure.h"

namespace qov {
namespace {

void logBanner(const CQOVDebugKit& kit) {
  const std::string root = QOV_Utility::getQOVRootEnv();
  kit.info(log_id::kBanner, __FUNCTION__, __LINE__,
           std::string("libqovpub ") + QOV_Version() + ": process " +
               std::to_string(QOV_Utility::getProcPID()) + ", pid " + std::to_string(::getpid()) +
               ", root " + (root.empty() ? "/" : root) + ", configuration " +
               QOV_Utility::getProcessCfgFileName() + ", log level " + lowestLevelOn());
}

/// The file is read once more: whoever reads it first cannot log.
void checkProcPid(const CQOVDebugKit& kit) {
  CQOV_Ini_Operator ini;
  std::string value;
  const bool isThere =
      ini.open(nullptr) == 0 && ini.getConfigItem("QOV_GLOBAL", "PROC_PID", value) == 0;
  const std::string why = isThere ? whyOddProcPid(value) : "";
  if (!why.empty()) {
    kit.warn(log_id::kOddProcPid, __FUNCTION__, __LINE__,
             textOf({"take a value as it stands", QOV_Utility::getProcessCfgFileName(), 0,
                     "QOV_GLOBAL/PROC_PID", why}));
  }
}

void checkDirectory(const CQOVDebugKit& kit) {
  const std::string& directory = QOV_Utility::getProcessCfgPath();
  const std::string holder = lockDirectory(directory);
  if (!holder.empty()) {
    kit.warn(log_id::kDirectoryShared, __FUNCTION__, __LINE__,
             textOf({"have the configuration directory for this process alone",
                     directory,
                     0,
                     {},
                     holder + " uses it, too"}));
  }
}

}  // namespace

void logStart() {
  if (const CQOVDebugKit* const kit = CQOVDebugKitMgr::instance()->find(0)) {
    logBanner(*kit);
    checkProcPid(*kit);
    checkDirectory(*kit);
  }
}

}  // namespace qov
