#ifndef QOV_TESTS_DIAG_LOG_CAPTURE_H
#define QOV_TESTS_DIAG_LOG_CAPTURE_H

#include <ace/Log_Msg.h>

#include <algorithm>
#include <sstream>
#include <string>

/// Sends what the calling thread logs into a text and sets the process's priority mask, until it
/// goes out of scope. For tests: other threads' records are not captured.
class LogCapture {
 public:
  static constexpr u_long kAllLevels = 0x7FF;

  explicit LogCapture(u_long mask = kAllLevels)
      : flags_(log().flags()),
        stream_(log().msg_ostream()),
        mask_(log().priority_mask(mask, ACE_Log_Msg::PROCESS)) {
    log().clr_flags(flags_);
    log().set_flags(ACE_Log_Msg::OSTREAM);
    log().msg_ostream(&out_);
  }

  ~LogCapture() {
    log().msg_ostream(stream_);
    log().clr_flags(~0UL);
    log().set_flags(flags_);
    log().priority_mask(mask_, ACE_Log_Msg::PROCESS);
  }

  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  static ACE_Log_Msg& log() { return *ACE_Log_Msg::instance(); }

  std::string text() const { return out_.str(); }
  std::ostringstream& stream() { return out_; }
  void clear() { out_.str(std::string()); }
  long lines() const {
    const std::string all = text();
    return std::count(all.begin(), all.end(), '\n');
  }

 private:
  const u_long flags_;
  std::ostream* const stream_;
  const u_long mask_;
  std::ostringstream out_;
};

#endif
