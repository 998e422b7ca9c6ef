#include <ace/Reactor.h>
#include <pwd.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_logging_strategy.h>
#include <safeclib/safe_str_lib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "diag/file_strategy.h"
#include "diag/folding.h"
#include "diag/log_form.h"
#include "diag/log_notices.h"
#include "diag/log_options.h"
#include "diag/log_sink.h"
#include "diag/log_value.h"
#include "diag/uncancelled.h"

namespace {

constexpr const char* kDefaultLogFile = "/var/log/KRV/NoSetLogFile.log";

/// The optional keys of the last reading. CLogging_Cfg_Param, whose fields are fixed, has no room
/// for them; they are the process's anyway.
qov::LogForm formRead;

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
  qov::tellAllCounts();
  if (toFile) {
    sink.use(log, param.logFile_, owner);
  }
  sink.beBackend(log);
  strategy.init(options.argc(), options.argv());
  qov::LogForm::use(formRead);
}

qov::LogForm readForm(CQOV_Ini_Operator& ini, std::vector<std::string>& oddValues) {
  qov::LogForm form;
  for (const qov::LogFormKey& key : qov::kLogFormKeys) {
    std::string value;
    if (ini.getConfigItem("LOG_CFG", key.name, value) != 0) {
      continue;
    }
    if (qov::isSwitchedOn(value)) {
      form = form.with(key.part);
    }
    if (const std::string why = qov::whyOddSwitch(value); !why.empty()) {
      oddValues.push_back(qov::describeOddValue(key.name, why));
    }
  }
  return form;
}

/// Once `param` is in force.
void tidyUp(const CLogging_Cfg_Param& param) noexcept {
  qov::LogSink& sink = qov::LogSink::process();
  // A count that cannot be meant must not cost the files that are there.
  if (param.logFileMaxCnt_ >= 1) {
    sink.removeFilesFrom(param.logFileMaxCnt_);
  }
  if (sink.openError() != 0 && param.logFile_[0] != '\0') {
    qov::tellNoFile(param.logFile_, sink);
  }
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
      qov::warnOfCutName(logFile, param.logFile_);
    }
  }
  return result;
}

int CQOV_Logging_Strategy::reloadLogStrategy(const char* cfgFile, const char* logFile) {
  inForce_.reset();
  const int result = initLogStrategy(cfgFile, logFile);
  if (inForce_) {  // or else who met the reason has told it
    qov::tellSettings(*inForce_, qov::LogSink::process());
  }
  return result;
}

void CQOV_Logging_Strategy::warnOfOddValues() {
  for (const std::string& description : oddValues_) {
    qov::warnOfOddValue(description);
  }
  oddValues_.clear();
}

int CQOV_Logging_Strategy::read_log_config(const char* /*cfgFile*/, CLogging_Cfg_Param& param) try {
  CQOV_Ini_Operator ini;
  errno = 0;
  const int opened = ini.open(nullptr);
  if (opened != 0) {
    if (errno == ENOMEM) {
      throw std::bad_alloc();
    }
    qov::warnOfNoConfig();
    return opened;
  }
  oddValues_.clear();
  for (const qov::LogKey& key : qov::kLogKeys) {
    std::string value;
    if (ini.getConfigItem("LOG_CFG", key.name, value) != 0) {
      qov::warnOfNoKey(ini, key.name);
      return -1;
    }
    param.*key.field = qov::toInt(value);
    if (const std::string why = qov::whyOdd(key, value); !why.empty()) {
      oddValues_.push_back(qov::describeOddValue(key.name, why));
    }
  }
  param.logLevel_ = std::min(param.logLevel_, qov::kMaxLevel);
  formRead = readForm(ini, oddValues_);
  return 0;
} catch (const std::bad_alloc&) {
  qov::warnOfNoMemory();
  errno = ENOMEM;
  return -1;
}

int CQOV_Logging_Strategy::initLogStrategy(const CLogging_Cfg_Param& param) {
  const qov::Uncancelled applying;
  try {
    const int predecessors = std::max(param.logFileMaxCnt_, 1) - 1;
    auto strategy = std::make_unique<qov::FileStrategy>(maxBytes(param), predecessors);
    const bool toFile = param.sendTerminal_ == 0;
    const bool checked = toFile && param.chkInterval_ > 0;
    const bool folds = formRead.has(qov::LogForm::kFold);
    if (checked || folds) {
      strategy->reactor(ACE_Reactor::instance());
    }
    if (checked) {
      strategy->arm(param.chkInterval_);
    }
    if (folds) {
      strategy->armFolding();
    }
    const std::optional<uid_t> owner = findDaemon();
    applyOptions(*strategy, param, owner);
    if (toFile) {
      strategy->handle_timeout(ACE_Time_Value(param.chkInterval_), nullptr);
    }
    strategy_ = std::move(strategy);  // the former one goes with its timers
    inForce_ = param;
    if (toFile) {
      tidyUp(param);
    }
    return give(param.logFile_, owner);
  } catch (const std::bad_alloc&) {
    qov::warnOfNoMemory();
    errno = ENOMEM;
    return -1;
  }
}
