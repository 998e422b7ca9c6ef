#include "tools/qov-endpoint/standard_error.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "modules/common/controls.h"

namespace qov::endpoint {
namespace {

/// A pipe that takes anything takes so much at once.
constexpr std::size_t kMost = PIPE_BUF;

/// Standard error. Writing there never waits.
class StandardError {
 public:
  StandardError() {
    struct stat what {};
    static_cast<void>(::fstat(STDERR_FILENO, &what));
    isSocket_ = S_ISSOCK(what.st_mode);
    if (S_ISFIFO(what.st_mode) || ::isatty(STDERR_FILENO) == 1) {
      // A program that shares the open file would get a flag of ours, too: so open another.
      handle_ = ::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    }
  }

  /// What is not taken at once is lost, which is no failure.
  void write(const std::string& text) const {
    if (isSocket_) {
      static_cast<void>(
          !::send(STDERR_FILENO, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
    } else if (handle_ >= 0) {
      static_cast<void>(!::write(handle_, text.data(), text.size()));
    } else if (takesMore()) {
      static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
    }
  }

 private:
  /// Always true of a file. It is all that can be asked of what cannot be opened a second time.
  static bool takesMore() {
    pollfd entry{STDERR_FILENO, POLLOUT, 0};
    return ::poll(&entry, 1, 0) == 1;
  }

  bool isSocket_ = false;
  int handle_ = -1;  ///< open until the program ends
};

}  // namespace

void tell(const std::string& line) {
  static const StandardError standardError;
  standardError.write(line.substr(0, kMost - 1) + '\n');
}

void complain(const std::string& why) {
  tell("qov-endpoint: " + common::withoutControls(why));
}

AceLog::AceLog(bool tells) {
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
  if (tells) {
    ACE_LOG_MSG->msg_callback(this);
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::MSG_CALLBACK);
  }
}

AceLog::~AceLog() {
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
  ACE_LOG_MSG->msg_callback(nullptr);
}

void AceLog::log(ACE_Log_Record& record) {
  std::string line = record.msg_data();
  line.erase(line.find_last_not_of('\n') + 1);
  tell(line);
}

}  // namespace qov::endpoint
