#ifndef QOV_FRAME_ENV_FAILURE_H
#define QOV_FRAME_ENV_FAILURE_H

#include <string>

namespace qov {

/// What went wrong, where and why. Every line that tells why an agent does not start, or does not
/// do what its files ask for, is made from one of these.
struct Failure {
  /// What was tried: "open the process configuration".
  std::string tried;
  /// The file's whole path; empty when no file is concerned.
  std::string file;
  /// The line in it, from 1; 0 for none.
  unsigned line = 0;
  /// "LOG_CFG/LogLevel"; empty when no key is concerned.
  std::string key;
  /// errnoText(), dlerror(), what(), or a few words of ours.
  std::string cause;
};

/// One line: "Failed to read the configuration: /r/conf/a/a.cfg:12: LOG_CFG/LogLevel: cause". What
/// is empty is left out.
std::string textOf(const Failure& failure);

/// "ended by signal 9 (Killed)" or "ended with exit status 3": of a `status` of waitpid().
/// Thread: one at a time, as strsignal().
std::string wayOfEnd(int status);

/// The system's text for `error`, an errno value. Thread: any.
std::string errnoText(int error);

}  // namespace qov

#endif
