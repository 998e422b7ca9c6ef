#include <ace/Reactor.h>
#include <pwd.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_logging_strategy.h>
#include <qovpub/qov_utility.h>
#include <safeclib/safe_str_lib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "diag/file_strategy.h"
#include "diag/log_level.h"
#include "diag/log_options.h"
#include "diag/log_sink.h"
#include "diag/log_value.h"
#include "frame/env_ini_import.h"
#include "frame/failure.h"

namespace {

constexpr const char* kDefaultLogFile = "/var/log/KRV/NoSetLogFile.log";

void setLogFile(CLogging_Cfg_Param& param, const char* logFile) {
  strncpy_s(param.logFile_, sizeof(param.logFile_), logFile,
            std::min(std::strlen(logFile), sizeof(param.logFile_) - 1));
}

long long maxBytes(const CLogging_Cfg_Param& param) {
  return std::max(0LL, static_cast<long long>(param.logFileMaxSize_)) * 1024;
}

std::optional<uid_t> findDaemon() {
  std::vector<char> texts(16384);
  struct passwd entry {};
  struct passwd* user = nullptr;
  if (::getpwnam_r("daemon", &entry, texts.data(), texts.size(), &user) != 0 || user == nullptr) {
    return std::nullopt;
  }
  return user->pw_uid;
}

/// What other threads log meanwhile waits for the lock: ACE switches all destinations off for a
/// moment.
void applyOptions(qov::FileStrategy& strategy, const CLogging_Cfg_Param& param,
                  std::optional<uid_t> owner) {
  ACE_Log_Msg& log = *ACE_Log_Msg::instance();
  const bool toFile = param.sendTerminal_ == 0;
  qov::LogOptions options(param);
  qov::LogSink& sink = qov::LogSink::process();
  const qov::LogSink::Lock lock(log);
  if (toFile) {
    sink.use(log, param.logFile_, owner);
  }
  sink.beBackend(log);
  strategy.init(options.argc(), options.argv());
}

/// Null only where there is no memory for the kits.
const CQOVDebugKit* publicKit() {
  CQOVDebugKitMgr* const kits = CQOVDebugKitMgr::instance();
  return kits != nullptr ? kits->find(0) : nullptr;
}

void warnOf(qov::Failure failure) {
  if (const CQOVDebugKit* const kit = publicKit()) {
    failure.cause += "; the log stays as it is";
    kit->warn(65720, "initLogStrategy", __LINE__, qov::textOf(failure));
  }
}

/// An error, which every "LogLevel" lets through.
void tellNoFile(const std::string& file, int error) {
  if (const CQOVDebugKit* const kit = publicKit()) {
    const std::string folder = file.substr(0, file.rfind('/') + 1);
    const bool noFolder = error == ENOENT && ::access(folder.c_str(), F_OK) != 0;
    const std::string cause = noFolder ? "there is no directory " + folder : qov::errnoText(error);
    kit->error(
        65721, "initLogStrategy", __LINE__,
        qov::textOf({"open the log", file, 0, {}, cause + "; records go to standard error"}));
  }
}

/// Without memory this is left out: the settings are in force.
void warnOfCutName(const char* logFile, const char* cut) noexcept try {
  if (const CQOVDebugKit* const kit = publicKit()) {
    kit->warn(65722, "initLogStrategy", __LINE__,
              qov::textOf({"take the whole path of the log",
                           logFile,
                           0,
                           {},
                           std::string("it is too long; records go to ") + cut}));
  }
} catch (const std::bad_alloc&) {
}

/// Once `param` is in force: without memory this is left out.
void tidyUp(const CLogging_Cfg_Param& param) noexcept try {
  qov::LogSink& sink = qov::LogSink::process();
  // A count that cannot be meant must not cost the files that are there.
  if (param.logFileMaxCnt_ >= 1) {
    sink.removeFilesFrom(param.logFileMaxCnt_);
  }
  if (sink.openError() != 0 && param.logFile_[0] != '\0') {
    tellNoFile(param.logFile_, sink.openError());
  }
} catch (const std::bad_alloc&) {
}

qov::Failure whyNoConfig() {
  try {
    return qov::whyNoIniFile(QOV_Utility::getProcessCfgFileName());
  } catch (const CQOV_Exception& e) {
    return {"read the configuration", {}, 0, {}, e.what()};
  }
}

qov::Failure whyNoKey(CQOV_Ini_Operator& ini, const std::string& key) {
  std::list<std::pair<std::string, std::string>> items;
  qov::Failure failure{"configure the log", QOV_Utility::getProcessCfgFileName(), 0, "LOG_CFG", {}};
  if (ini.enumerateSections("LOG_CFG", items) != 0) {
    failure.cause = "there is no such section";
  } else {
    failure.key += "/" + key;
    failure.cause = "there is no such key";
  }
  return failure;
}

std::string describe(const CLogging_Cfg_Param& param) {
  const std::string begin = "Log settings in force: ";
  if (param.sendTerminal_ != 0) {
    return begin + "standard error, levels as they were, from " + qov::lowestLevelOn() + " up";
  }
  const bool isOpen = qov::LogSink::process().openError() == 0;
  const auto shown = [](int value, int least) { return std::to_string(std::max(value, least)); };
  return begin + "LogLevel " + shown(param.logLevel_, 0) + ", " +
         (isOpen ? std::string("file ") + param.logFile_ : "standard error") + ", LogFileMaxSize " +
         shown(param.logFileMaxSize_, 0) + " KB, LogFileMaxCnt " + shown(param.logFileMaxCnt_, 1) +
         ", ChkInterval " + shown(param.chkInterval_, 0) + " s";
}

/// Without memory this is left out: the settings are in force.
void tellSettings(const CLogging_Cfg_Param& param) noexcept try {
  if (const CQOVDebugKit* const kit = publicKit()) {
    kit->info(65771, "reloadLogStrategy", __LINE__, describe(param));
  }
} catch (const std::bad_alloc&) {
}

/// The user's id also stands for the group, on purpose.
int give(const char* file, std::optional<uid_t> user) {
  return user && ::chown(file, *user, static_cast<gid_t>(*user)) == 0 ? 0 : -1;
}

}  // namespace

CLogging_Cfg_Param::CLogging_Cfg_Param()
    : logFile_{},
      chkInterval_(600),
      logFileMaxSize_(10240),
      logFileMaxCnt_(3),
      sendTerminal_(0),
      logLevel_(2) {
  setLogFile(*this, kDefaultLogFile);
}

CQOV_Logging_Strategy::CQOV_Logging_Strategy() = default;

CQOV_Logging_Strategy::~CQOV_Logging_Strategy() = default;

int CQOV_Logging_Strategy::initLogStrategy(const char* cfgFile, const char* logFile) {
  CLogging_Cfg_Param param;
  if (logFile != nullptr) {
    setLogFile(param, logFile);
  }
  int result = read_log_config(cfgFile, param);
  if (result == 0) {
    result = initLogStrategy(param);
    warnOfOddValues();
    if (logFile != nullptr && std::strcmp(logFile, param.logFile_) != 0) {
      warnOfCutName(logFile, param.logFile_);
    }
  }
  return result;
}

int CQOV_Logging_Strategy::reloadLogStrategy(const char* cfgFile, const char* logFile) {
  inForce_.reset();
  const int result = initLogStrategy(cfgFile, logFile);
  if (inForce_) {  // or else who met the reason has told it
    tellSettings(*inForce_);
  }
  return result;
}

void CQOV_Logging_Strategy::noteOddValue(const char* key, const std::string& why) {
  if (!why.empty()) {
    oddValues_.push_back(
        qov::textOf({"take a value as it stands", QOV_Utility::getProcessCfgFileName(), 0,
                     std::string("LOG_CFG/") + key, why}));
  }
}

void CQOV_Logging_Strategy::warnOfOddValues() {
  if (const CQOVDebugKit* const kit = publicKit()) {
    for (const std::string& line : oddValues_) {
      kit->warn(65770, "initLogStrategy", __LINE__, line);
    }
  }
  oddValues_.clear();
}

int CQOV_Logging_Strategy::read_log_config(const char* /*cfgFile*/, CLogging_Cfg_Param& param) try {
  CQOV_Ini_Operator ini;
  const int opened = ini.open(nullptr);
  if (opened != 0) {
    warnOf(whyNoConfig());
    return opened;
  }
  oddValues_.clear();
  for (const qov::LogKey& key : qov::kLogKeys) {
    std::string value;
    if (ini.getConfigItem("LOG_CFG", key.name, value) != 0) {
      warnOf(whyNoKey(ini, key.name));
      return -1;
    }
    param.*key.field = qov::toInt(value);
    noteOddValue(key.name, qov::whyOdd(key, value));
  }
  param.logLevel_ = std::min(param.logLevel_, qov::kMaxLevel);
  return 0;
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return -1;
}

int CQOV_Logging_Strategy::initLogStrategy(const CLogging_Cfg_Param& param) {
  try {
    const int predecessors = std::max(param.logFileMaxCnt_, 1) - 1;
    std::unique_ptr<qov::FileStrategy> strategy(
        new (std::nothrow) qov::FileStrategy(maxBytes(param), predecessors));
    if (strategy == nullptr) {
      errno = ENOMEM;
      return -1;
    }
    const bool toFile = param.sendTerminal_ == 0;
    const bool checked = toFile && param.chkInterval_ > 0;
    if (checked) {
      strategy->reactor(ACE_Reactor::instance());
    }
    const std::optional<uid_t> owner = findDaemon();
    applyOptions(*strategy, param, owner);
    if (toFile) {
      strategy->handle_timeout(ACE_Time_Value(param.chkInterval_), nullptr);
    }
    strategy_.reset();  // with its timer
    if (checked) {
      strategy->arm(param.chkInterval_);
    }
    strategy_ = std::move(strategy);
    inForce_ = param;
    if (toFile) {
      tidyUp(param);
    }
    return give(param.logFile_, owner);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}
