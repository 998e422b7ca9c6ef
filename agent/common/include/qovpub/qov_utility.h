#ifndef QOVPUB_QOV_UTILITY_H
#define QOVPUB_QOV_UTILITY_H

#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <ace/config-lite.h>
#include <qovpub/qov_export.h>
#include <sys/types.h>

#include <ctime>
#include <string>

/// Name, directories and file names of this process, computed once at first use.
///
/// The one object of the process is ACE_Singleton<CProcInfo, ACE_Thread_Mutex>; its values are
/// reached through the getters of QOV_Utility, which make its first use safe from several threads
/// and keep a copy that outlives it.
///
/// Thread: constant after construction.
/// Owns:   its texts. ACE's object manager destroys the singleton when the process exits; the copy
///         that the getters read stays.
/// Errors: the constructor throws CQOV_Exception; a later first use tries again.
class QOV_EXPORT CProcInfo {
 public:
  /// Reads the process configuration file. Throws CQOV_Exception with one of
  /// "can't make config", "can't open proc config file" (also for a file that is no INI file),
  /// "can't open section name is PROC!" (no section "QOV_GLOBAL") and
  /// "can't get PROC_PID from section name is PROC!".
  CProcInfo();

  /// Sets `name` to the base name of this process's executable without its last extension:
  /// devagent for /opt/agent/bin/devagent.bin. The "." that ends the name is the last one of the
  /// whole path, so that /opt/rel1.2/devagent gives an empty name; this is kept on purpose. Paths
  /// are cut after 260 bytes; an executable whose path cannot be read has an empty name.
  static void getProcName(std::string& name);

  /// @{
  /// As QOV_Utility's getters for the process have them. References hold as long as this object.
  const std::string& procName() const { return procName_; }
  const std::string& cfgPath() const { return cfgPath_; }
  const std::string& cfgFileName() const { return cfgFileName_; }
  const std::string& logPath() const { return logPath_; }
  const std::string& logFileName() const { return logFileName_; }
  u_int pid() const { return pid_; }
  /// @}

 private:
  std::string procName_;
  std::string cfgPath_;
  std::string cfgFileName_;
  std::string logPath_;
  std::string logFileName_;
  u_int pid_;
};

/// The library has the one object, also for modules whose own symbols are hidden.
extern template class QOV_EXPORT ACE_Singleton<CProcInfo, ACE_Thread_Mutex>;

/// Services of the process: identity, privileges, node id, digest.
///
/// Thread: every operation from any thread, except setDaemon(), which belongs to start-up. As for
///         any program, the environment must not be changed while other threads read it.
/// Owns:   nothing; the references hold as long as the process, also while static objects end.
/// Errors: the getters of CProcInfo's values throw CQOV_Exception as its constructor does, as long
///         as it has not succeeded once. They also throw when a log sink calls them while its own
///         thread is in that constructor: ACE logs there when it runs out of memory.
class QOV_EXPORT QOV_Utility {
 public:
  /// The value of the environment variable "QOV_ROOT" with every backslash turned into a slash,
  /// empty when it is not set. Read anew on every call.
  static std::string getQOVRootEnv();

  /// Starts a session of its own and gives up all privileges for those of the user "daemon":
  /// its primary group alone, then its user id. Does not fork. Returns 0; otherwise it writes one
  /// line to standard output, "enter exit" when there is no such user and "enter setuid" when a
  /// step is refused, and ends the process with exit status 1, at once: no static object is
  /// destroyed and no function of std::atexit runs, since threads of modules may be at work.
  static int setDaemon();

  /// The last `n` characters of `s`, all of it when it has no more than that.
  static std::string GetLastNCharacter(const std::string& s, u_int n);

  /// Asks the platform for the id of this node. Returns the platform's result; when that is not 0,
  /// `nodeId` is what the platform has left in it.
  static int GetNodeIdLocal(u_short& nodeId);

  /// The id of this process within its family of agents: key "PROC_PID" of section "QOV_GLOBAL".
  static u_int getProcPID();
  /// The executable's name, see CProcInfo::getProcName().
  static const std::string& getProcessName();
  /// Root + "/conf/" + name + "/".
  static const std::string& getProcessCfgPath();
  /// Root + "/conf/" + name + "/" + name + ".cfg".
  static const std::string& getProcessCfgFileName();
  /// Root + "/log", without a slash at the end.
  static const std::string& getProcessLogPath();
  /// Root + "/log/" + name + ".log".
  static const std::string& getProcessLogFileName();

  /// The SHA-256 digest of the bytes of `data` as 64 lower-case hexadecimal digits.
  static std::string DigestSHA256(const std::string& data);
};

/// `t` broken down in the local time zone, which is looked up anew on every call. All fields are 0
/// for a time whose year cannot be expressed.
QOV_EXPORT struct tm UtcTimeToLocalTime(time_t t);

/// `t` in local time: year, month and day with `dateSep` between them, a blank, and the time of
/// day, as in 2026-01-05 07:03:09. The year has at least four digits, the other fields two.
QOV_EXPORT std::string UtcTimeToLocalTimeStr(time_t t, std::string dateSep);

/// The decimal number that `s` starts with after any white space, cut to its low 32 bits: 42 for
/// "42abc". No error is reported: text that is no number gives 0, a number of more than 64 bits
/// gives 4294967295, and a minus sign negates, so that "-1" gives 4294967295.
QOV_EXPORT u_int StrToUint(std::string s);

/// `v` in decimal, with a minus sign when it is negative.
QOV_EXPORT std::string IntToStr(int v);

/// `v` in decimal.
QOV_EXPORT std::string UintToStr(u_int v);

#endif
