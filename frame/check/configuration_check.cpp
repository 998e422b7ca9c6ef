#include "frame/check/configuration_check.h"

#include <qovpub/qov_ini_operator.h>

#include "diag/log_failures.h"
#include "diag/log_value.h"
#include "frame/env/env_failure.h"
#include "link/endpoint_address.h"

namespace qov {
namespace {

/// The check of one configuration file that can be read.
class ConfigurationCheck {
 public:
  ConfigurationCheck(const ProcFiles& files, std::vector<QOVFinding>& findings)
      : files_(files), places_(files.configuration), findings_(findings) {
    static_cast<void>(ini_.open(files.configuration.c_str()));
  }

  void run(const std::string& procName, const SectionReaders& readers) {
    checkProcPid(procName);
    checkLog();
    std::string endpoint;
    if (ini_.getConfigItem("MMT", "MMT_ADDR", endpoint) == 0) {
      addOdd("MMT/MMT_ADDR", whyNoHostPort(endpoint));
    }
    places_.addIgnored(readers, findings_);
  }

 private:
  void checkProcPid(const std::string& procName) {
    try {
      addOdd("QOV_GLOBAL/PROC_PID", whyOddProcPid(readProcPid(files_.configuration, procName)));
    } catch (const EnvFailure& missing) {
      add(missing.failure());
    }
  }

  void checkLog() {
    for (const LogKey& key : kLogKeys) {
      std::string value;
      if (ini_.getConfigItem("LOG_CFG", key.name, value) != 0) {
        // A start looks no further.
        add(whyNoLogKey(ini_, files_.configuration, key.name));
        return;
      }
      addOdd(std::string("LOG_CFG/") + key.name, whyOdd(key, value));
    }
    for (const LogFormKey& key : kLogFormKeys) {
      std::string value;
      if (ini_.getConfigItem("LOG_CFG", key.name, value) == 0) {
        addOdd(std::string("LOG_CFG/") + key.name, whyOddSwitch(value));
      }
    }
    std::string toTerminal;
    ini_.getConfigItem("LOG_CFG", "SendTerminal", toTerminal);
    if (toInt(toTerminal) == 0) {
      checkLogFile();
    }
  }

  void checkLogFile() {
    const std::string path = pathThatFits(files_.log);
    if (path != files_.log) {
      findings_.push_back(findingOf(whyCutPath(files_.log, path)));
    }
    if (const int error = errorOfLogFile(path); error != 0) {
      findings_.push_back(findingOf(whyNoLogFile(path, error, {}), isPipe(path)));
    }
  }

  void add(Failure failure) {
    failure.line = places_.lineOf(failure.key);
    findings_.push_back(findingOf(failure));
  }
  void addOdd(const std::string& key, const std::string& why) {
    if (!why.empty()) {
      add({{}, files_.configuration, 0, key, why});
    }
  }

  const ProcFiles& files_;
  const ConfigurationPlaces places_;
  std::vector<QOVFinding>& findings_;
  CQOV_Ini_Operator ini_;
};

}  // namespace

QOVFinding findingOf(const Failure& failure, bool isWarning) {
  const std::string key = failure.key.empty() ? "" : failure.key + ": ";
  return {isWarning, failure.file, failure.line, key + failure.cause};
}

void checkConfiguration(const ProcFiles& files, const std::string& procName,
                        const SectionReaders& readers, std::vector<QOVFinding>& findings) {
  CQOV_Ini_Operator ini;
  if (ini.open(files.configuration.c_str()) == 0) {
    ConfigurationCheck(files, findings).run(procName, readers);
    return;
  }
  try {
    readProcPid(files.configuration, procName);
  } catch (const EnvFailure& unread) {
    findings.push_back(findingOf(unread.failure()));
  }
}

}  // namespace qov
