#ifndef QOVPUB_QOV_UTILITY_H
#define QOVPUB_QOV_UTILITY_H

#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <ace/config-lite.h>
#include <sys/types.h>

#include <ctime>
#include <string>

/// Name, directories and file names of this process, computed once at first use.
class CProcInfo {
 public:
  /// Throws CQOV_Exception when the process configuration file or its PROC_PID cannot be read.
  CProcInfo();

  static void getProcName(std::string& name);

  const std::string& procName() const { return procName_; }
  const std::string& cfgPath() const { return cfgPath_; }
  const std::string& cfgFileName() const { return cfgFileName_; }
  const std::string& logPath() const { return logPath_; }
  const std::string& logFileName() const { return logFileName_; }
  u_int pid() const { return pid_; }

 private:
  std::string procName_;
  std::string cfgPath_;
  std::string cfgFileName_;
  std::string logPath_;
  std::string logFileName_;
  u_int pid_;
};

class QOV_Utility {
 public:
  static std::string getQOVRootEnv();
  static int setDaemon();
  static std::string GetLastNCharacter(const std::string& s, u_int n);
  static int GetNodeIdLocal(u_short& nodeId);
  static u_int getProcPID();
  static const std::string& getProcessName();
  static const std::string& getProcessCfgPath();
  static const std::string& getProcessCfgFileName();
  static const std::string& getProcessLogPath();
  static const std::string& getProcessLogFileName();
  static std::string DigestSHA256(const std::string& data);
};

struct tm UtcTimeToLocalTime(time_t t);
std::string UtcTimeToLocalTimeStr(time_t t, std::string dateSep);
u_int StrToUint(std::string s);
std::string IntToStr(int v);
std::string UintToStr(u_int v);

#endif
