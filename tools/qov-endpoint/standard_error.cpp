#include "tools/qov-endpoint/standard_error.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>
#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include "tools/common/controls.h"

namespace qov::endpoint {
namespace {

/// A pipe that takes anything takes so much at once.
constexpr std::size_t kMost = PIPE_BUF;

}  // namespace

void tell(const std::string& line) {
  pollfd entry{STDERR_FILENO, POLLOUT, 0};
  if (::poll(&entry, 1, 0) == 1) {
    const std::string text = line.substr(0, kMost - 1) + '\n';
    // A line that is lost is no failure.
    static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
  }
}

void complain(const std::string& why) {
  tell("qov-endpoint: " + tools::withoutControls(why));
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
