#ifndef QOV_FRAME_ENV_ENV_PROC_FILES_H
#define QOV_FRAME_ENV_ENV_PROC_FILES_H

#include <string>

namespace qov {

/// The paths that CProcInfo tells.
struct ProcFiles {
  std::string directory;  ///< with a slash at the end
  std::string configuration;
  std::string logDirectory;  ///< without one
  std::string log;
};

/// Those of the process `procName` under QOV_Utility::getQOVRootEnv().
ProcFiles procFilesOf(const std::string& procName);

/// The text of key "PROC_PID" in `cfgFileName`, the configuration of the process `procName`. Throws
/// EnvFailure.
std::string readProcPid(const std::string& cfgFileName, const std::string& procName);

/// Why `value` cannot be meant as "PROC_PID", and what is taken instead; empty when it can.
std::string whyOddProcPid(const std::string& value);

}  // namespace qov

#endif
