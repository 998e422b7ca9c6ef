#include "diag/log_end.h"

#include <ace/Base_Thread_Adapter.h>
#include <ace/Log_Msg.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <ctime>
#include <utility>

#include "diag/ace_private.h"

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

/// A record takes longer than this only where nobody reads standard error any more.
constexpr std::chrono::seconds kLongestRecord(3);

/// Returns at once when the count is not `seen` any more.
void waitForChange(int seen, std::chrono::nanoseconds limit) {
  const timespec time = {static_cast<time_t>(limit.count() / 1000000000),
                         static_cast<long>(limit.count() % 1000000000)};
  ::syscall(SYS_futex, &underWay, FUTEX_WAIT_PRIVATE, seen, &time, nullptr, 0);
}

void leave() {
  if (--underWay == 0 && ended) {
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
  using Clock = std::chrono::steady_clock;
  auto giveUp = Clock::now() + kLongestRecord;
  for (int count = underWay; count > 0;) {
    const auto left = giveUp - Clock::now();
    if (left <= left.zero()) {
      return;
    }
    waitForChange(count, left);
    const int before = std::exchange(count, underWay);
    if (count < before) {
      // One has come through, on a machine that may be busy.
      giveUp = Clock::now() + kLongestRecord;
    }
  }
}

/// The last of this library that runs. ACE is unloaded behind it, and deletes its log lock even if
/// its log was never closed.
[[gnu::destructor]] void end() {
  ended = true;
  waitForRecords();
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
