#include <ace/Reactor.h>
#include <pwd.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_logging_strategy.h>
#include <safeclib/safe_str_lib.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "diag/destination_lock.h"
#include "diag/file_strategy.h"
#include "diag/log_options.h"
#include "diag/log_stream.h"
#include "diag/orphan_threads.h"

namespace {

constexpr const char* kDefaultLogFile = "/var/log/KRV/NoSetLogFile.log";
constexpr int kMaxLevel = 5;

void setLogFile(CLogging_Cfg_Param& param, const char* logFile) {
  strncpy_s(param.logFile_, sizeof(param.logFile_), logFile,
            std::min(std::strlen(logFile), sizeof(param.logFile_) - 1));
}

int toInt(const std::string& text) {
  const long value = std::strtol(text.c_str(), nullptr, 10);
  return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
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
  const qov::DestinationLock lock(log);
  if (toFile) {
    log.msg_ostream(&qov::LogStream::use(param.logFile_, owner), false);
  }
  qov::OrphanThreads::adoptAll(log);
  strategy.init(options.argc(), options.argv());
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
  const int result = read_log_config(cfgFile, param);
  return result == 0 ? initLogStrategy(param) : result;
}

int CQOV_Logging_Strategy::read_log_config(const char* /*cfgFile*/, CLogging_Cfg_Param& param) try {
  CQOV_Ini_Operator ini;
  const int opened = ini.open(nullptr);
  if (opened != 0) {
    return opened;
  }
  const std::array<std::pair<const char*, int*>, 5> keys = {
      {{"SendTerminal", &param.sendTerminal_},
       {"ChkInterval", &param.chkInterval_},
       {"LogFileMaxSize", &param.logFileMaxSize_},
       {"LogFileMaxCnt", &param.logFileMaxCnt_},
       {"LogLevel", &param.logLevel_}}};
  for (const auto& [key, field] : keys) {
    std::string value;
    if (ini.getConfigItem("LOG_CFG", key, value) != 0) {
      return -1;
    }
    *field = toInt(value);
  }
  param.logLevel_ = std::min(param.logLevel_, kMaxLevel);
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
    return give(param.logFile_, owner);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}
