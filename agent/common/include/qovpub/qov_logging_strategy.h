#ifndef QOVPUB_QOV_LOGGING_STRATEGY_H
#define QOVPUB_QOV_LOGGING_STRATEGY_H

#include <ace/Logging_Strategy.h>
#include <qovpub/qov_export.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The log settings of a process: section "LOG_CFG" of its configuration file. The optional keys
/// "LogFold", "LogJson" and "LogEscape" have no field: CQOV_Logging_Strategy keeps those that it
/// has read last, for the process (docs/configuration.md).
struct QOV_EXPORT CLogging_Cfg_Param {
  /// Sets the defaults, named beside each field.
  CLogging_Cfg_Param();

  /// Path of the log file, always ended by a NUL; a longer one is cut to 255 characters. With an
  /// empty one there is no file, and records go to standard error.
  /// "/var/log/KRV/NoSetLogFile.log".
  char logFile_[256];
  /// Key "ChkInterval": seconds between two checks of the log file; 0 or less: no checks, so no
  /// rotation beyond the one check when the settings are applied. 600.
  int chkInterval_;
  /// Key "LogFileMaxSize": the file is rotated when it is larger than this many kilobytes; 0 or
  /// less: never. 10240.
  int logFileMaxSize_;
  /// Key "LogFileMaxCnt": log files kept, the current one among them: 3 keeps the file and its
  /// predecessors ".1" and ".2"; 1 or less keeps the current one alone. Applying the settings
  /// removes predecessors of higher numbers, up to the first number that is missing; none for a
  /// value below 1, which nobody can have meant. 3.
  int logFileMaxCnt_;
  /// Key "SendTerminal": not 0: records go to standard error instead of the file, and the other
  /// settings have no effect: levels stay as they are. 0.
  int sendTerminal_;
  /// Key "LogLevel", 0 to 5. 0: from TRACE up, 1: from DEBUG, 2 and 3: from INFO, 4: from WARNING,
  /// 5: ERROR alone. Critical records are off at every level, on purpose. A larger value counts as
  /// 5, a negative one as 0. 2.
  int logLevel_;
};

/// Applies the process's log settings to ACE logging: where records go and which levels pass.
///
/// Records of all threads go to one file, whatever thread wrote them and whenever it was started.
/// The file is appended to and never open to writers outside its owner and group; a file that was
/// moved or deleted is begun anew within a second of logging, and has its predecessor's owner, as
/// after a rotation. What the file cannot take (no directory, a full disk) goes to standard error.
/// When the file takes records again, the first of them counts those that it lacks.
///
/// The settings may be applied again at any time while other threads log: no record is lost or
/// split, and there is still one file, one timer and the same sequence of rotated files. The
/// destructor ends the checks of the file; records go on being written to it.
///
/// Thread: the main thread, which runs the process's reactor; never two calls at once.
/// Owns:   its ACE strategy, whose only timer stands in ACE_Reactor::instance(). The log file is
///         the process's and stays open until it ends.
/// Errors: reported by the results; nothing is thrown.
class QOV_EXPORT CQOV_Logging_Strategy {
 public:
  CQOV_Logging_Strategy();
  ~CQOV_Logging_Strategy();
  CQOV_Logging_Strategy(const CQOV_Logging_Strategy&) = delete;
  CQOV_Logging_Strategy& operator=(const CQOV_Logging_Strategy&) = delete;

  /// Reads the settings, puts `logFile` (null: the default) in, and applies them. `cfgFile` is not
  /// looked at, see read_log_config(). Returns 0; -1 when the settings cannot be read, with logging
  /// left as it was, or when applying them answers -1. Warns of a path that is cut and, with file,
  /// key and value, of each value that cannot be meant: no whole number, or out of range
  /// (docs/configuration.md).
  int initLogStrategy(const char* cfgFile, const char* logFile);

  /// What SIGUSR1 does: initLogStrategy(), and a record that says what came of it. A record at INFO
  /// has the level, the file, its limits and the optional keys that are in force now. One at WARN,
  /// in the log as it was, says why nothing has changed. "LogLevel" 4 hides the former and 5 both,
  /// like any record of that level.
  int reloadLogStrategy(const char* cfgFile, const char* logFile);

  /// Reads the five keys of "LOG_CFG" into `param`, from the process's own configuration file:
  /// `cfgFile` is not used, which is kept so. Returns 0, or -1 when the file cannot be read or a
  /// key is missing; the keys are read in the order SendTerminal, ChkInterval, LogFileMaxSize,
  /// LogFileMaxCnt, LogLevel, and those behind the missing one keep their values in `param`. A
  /// warning names the file and its faulty line, or the key. Text that is no number counts as 0, a
  /// number out of range as the nearest in range. When it returns 0, the optional keys of the file
  /// hold from the next initLogStrategy() on.
  int read_log_config(const char* cfgFile, CLogging_Cfg_Param& param);

  /// Applies `param`, rotates the file at once if it is too large, and gives it to the user
  /// "daemon" (its user id is also taken for the group). Returns 0; -1 when that user is unknown or
  /// the owner cannot be changed, with the settings in force all the same; -1 with errno ENOMEM and
  /// logging left as it was when there is no memory, which a warning tells. An error record says
  /// why the file cannot be opened.
  ///
  /// The process reactor's timers go by ACE's high resolution clock afterwards; timers that stood
  /// there before keep the time that was left to them.
  int initLogStrategy(const CLogging_Cfg_Param& param);

 private:
  void warnOfOddValues();

  std::unique_ptr<ACE_Logging_Strategy> strategy_;  ///< null until settings were applied
  std::optional<CLogging_Cfg_Param> inForce_;       ///< what was applied last
  std::vector<std::string> oddValues_;              ///< of the last reading, still to be told
};

#endif
