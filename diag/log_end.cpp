#include "diag/log_end.h"

#include <ace/Base_Thread_Adapter.h>
#include <ace/Log_Msg.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <ctime>
#include <utility>

#include "diag/ace_private.h"
#include "diag/folding.h"

namespace qov {

/// ACE's function that closes its log. ACE calls it by this pointer when its object manager goes,
/// while other threads may be logging, and has no public way to keep it from that.
struct CloseHook {
  using Type = ACE_CLOSE_LOG_MSG_HOOK*;
  friend constexpr Type address(CloseHook);
};

template struct Reach<CloseHook, &ACE_Base_Thread_Adapter::close_log_msg_hook_>;

namespace {

/// ACE sets the function whenever its count of log objects goes from 0 to 1. This one keeps the
/// count above 0, also where main() has ended its thread and another one logs for the first time.
[[gnu::used]] const ACE_Log_Msg* const kept = new ACE_Log_Msg;

/// Keeps ACE's log usable while static objects go. The system takes its memory back.
const ACE_CLOSE_LOG_MSG_HOOK closeOfAce = std::exchange(*address(CloseHook()), nullptr);

std::atomic<bool> ended{false};
/// The count of records; end() waits for it as a futex.
std::atomic<int> underWay{0};
static_assert(sizeof(underWay) == sizeof(int));

/// As long as records come through, the next one takes less than this. Longer means that one is
/// stuck: nobody reads standard error any more, or a callback waits for what has ended.
constexpr time_t kPatience = 3;  // seconds

/// False when the count is still `seen` after that time.
bool changes(int seen) {
  timespec until{};
  ::clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_sec += kPatience;
  while (underWay == seen) {
    if (::syscall(SYS_futex, &underWay, FUTEX_WAIT_BITSET_PRIVATE, seen, &until, nullptr,
                  FUTEX_BITSET_MATCH_ANY) != 0 &&
        errno == ETIMEDOUT) {
      return false;
    }
  }
  return true;
}

void leave() {
  --underWay;
  if (ended) {
    ::syscall(SYS_futex, &underWay, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
  }
}

/// Counts the record before it looks the second time, so that end() waits for it or is seen by it.
/// The first look keeps threads that go on logging out of the count.
bool begin() {
  if (ended) {
    return false;
  }
  ++underWay;
  if (ended) {
    leave();
    return false;
  }
  return true;
}

void waitForRecords() {
  for (int count = underWay; count > 0 && changes(count);) {
    count = underWay;
  }
}

/// The last of this library that runs. ACE is unloaded behind it, and deletes its log lock even if
/// its log was never closed.
[[gnu::destructor]] void end() {
  ended = true;
  waitForRecords();
  if (underWay == 0) {
    tellCountsAtEnd();
  }
}

}  // namespace

RecordUnderWay::RecordUnderWay() : mayGo_(begin()) {}

RecordUnderWay::~RecordUnderWay() {
  if (mayGo_) {
    leave();
  }
}

void RecordUnderWay::forgetAll() {
  underWay = 0;
}

void closeAceLog() {
  closeOfAce();
}

}  // namespace qov
