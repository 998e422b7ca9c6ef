#ifndef QOV_TOOLS_QOVCTL_FAILURE_H
#define QOV_TOOLS_QOVCTL_FAILURE_H

#include <stdexcept>
#include <string>

namespace qov::ctl {

/// How the program ends.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,         ///< the machine's fault: a file, the output, memory
  kUsage = 2,          ///< the command line
  kNoConnection = 3,   ///< no connection, or it was lost before the reply was there
  kTimedOut = 4,       ///< no reply in time
  kEndpointError = 5,  ///< the endpoint refused the request
  kBadData = 6,        ///< the input or a reply is not what it should be
  kIncomplete = 7,     ///< a walk that stopped before the end of its table
};

/// Ends a command; what() is the one line for standard error.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& why) : std::runtime_error(why), code_(code) {}

  ExitCode code() const noexcept { return code_; }

 private:
  ExitCode code_;
};

/// Writes "qovctl: " and the text as one line to standard error. Control characters, which may come
/// from input, are replaced.
void complain(const std::string& text);

}  // namespace qov::ctl

#endif
