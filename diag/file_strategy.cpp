#include "diag/file_strategy.h"

#include <ace/Reactor.h>

#include <cerrno>
#include <new>

#include "diag/folding.h"
#include "diag/log_notices.h"
#include "diag/log_sink.h"
#include "diag/timer_clock.h"
#include "diag/uncancelled.h"

namespace qov {

namespace {

/// Stands for the timer of armFolding().
constexpr char kCounts = 0;

}  // namespace

FileStrategy::FileStrategy(long long maxBytes, int predecessors)
    : maxBytes_(maxBytes), predecessors_(predecessors) {}

FileStrategy::~FileStrategy() {
  FileStrategy::reactor(nullptr);
}

void FileStrategy::arm(int seconds) {
  schedule(seconds, nullptr);
}

void FileStrategy::armFolding() {
  schedule(1, &kCounts);
}

void FileStrategy::schedule(int seconds, const void* act) {
  const ACE_Time_Value period(seconds);
  useHighResolutionClock(*reactor());
  if (reactor()->schedule_timer(this, act, period, period) != -1) {
    armed_ = true;
  } else if (errno == ENOMEM) {
    throw std::bad_alloc();
  }
}

int FileStrategy::handle_timeout(const ACE_Time_Value&, const void* act) noexcept {
  const Uncancelled looking;  // a cancellation would not pass the noexcept
  if (act == &kCounts) {
    tellDueCounts();
  } else {
    tellAllCounts();
    checkFile();
  }
  return 0;
}

void FileStrategy::checkFile() {
  const Failure failure = LogSink::process().checkFile(maxBytes_, predecessors_);
  if (!failure.cause.empty() && failure.cause != whyNotRotated_) {
    tellNotRotated(failure);
  }
  whyNotRotated_ = failure.cause;
}

// ACE_Logging_Strategy's own would arm a timer that rotates in ACE's way.
// NOLINTBEGIN(bugprone-parent-virtual-call)
int FileStrategy::handle_close(ACE_HANDLE, ACE_Reactor_Mask) {
  armed_ = false;
  ACE_Service_Object::reactor(nullptr);
  return 0;
}

void FileStrategy::reactor(ACE_Reactor* reactor) {
  if (armed_ && ACE_Service_Object::reactor() != reactor) {
    ACE_Service_Object::reactor()->cancel_timer(this);
    armed_ = false;
  }
  ACE_Service_Object::reactor(reactor);
}

ACE_Reactor* FileStrategy::reactor() const {
  return ACE_Service_Object::reactor();
}
// NOLINTEND(bugprone-parent-virtual-call)

}  // namespace qov
