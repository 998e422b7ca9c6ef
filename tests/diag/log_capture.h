#ifndef QOV_TESTS_DIAG_LOG_CAPTURE_H
#define QOV_TESTS_DIAG_LOG_CAPTURE_H

#include <ace/Log_Msg.h>

#include <algorithm>
#include <sstream>
#include <string>

/// Gives ACE logging back as it was: the process's destinations and priority mask, and the calling
/// thread's stream.
class LogStateKeeper {
 public:
  LogStateKeeper()
      : flags_(log().flags()),
        stream_(log().msg_ostream()),
        mask_(log().priority_mask(ACE_Log_Msg::PROCESS)) {}

  ~LogStateKeeper() {
    log().msg_ostream(stream_, false);
    useFlags(flags_);
    log().priority_mask(mask_, ACE_Log_Msg::PROCESS);
  }

  LogStateKeeper(const LogStateKeeper&) = delete;
  LogStateKeeper& operator=(const LogStateKeeper&) = delete;

  static ACE_Log_Msg& log() { return *ACE_Log_Msg::instance(); }

  static void useFlags(u_long flags) {
    log().clr_flags(~0UL);
    log().set_flags(flags);
  }

 private:
  const u_long flags_;
  std::ostream* const stream_;
  const u_long mask_;
};

/// Sends what the calling thread logs into a text and sets the process's priority mask, until it
/// goes out of scope. Other threads' records are not captured.
class LogCapture {
 public:
  static constexpr u_long kAllLevels = 0x7FF;

  explicit LogCapture(u_long mask = kAllLevels) {
    log().priority_mask(mask, ACE_Log_Msg::PROCESS);
    LogStateKeeper::useFlags(ACE_Log_Msg::OSTREAM);
    log().msg_ostream(&out_, false);
  }

  static ACE_Log_Msg& log() { return LogStateKeeper::log(); }

  std::string text() const { return out_.str(); }
  std::ostringstream& stream() { return out_; }
  void clear() { out_.str(std::string()); }
  long lines() const {
    const std::string all = text();
    return std::count(all.begin(), all.end(), '\n');
  }

 private:
  const LogStateKeeper before_;
  std::ostringstream out_;
};

#endif
