#include "diag/log_end.h"

#include <ace/Base_Thread_Adapter.h>
#include <ace/Log_Msg.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

namespace qov {

namespace {

/// ACE's function that closes its log. ACE calls it by this pointer when its object manager goes,
/// while other threads may be logging, and has no public way to keep it from that. Naming a private
/// member in an explicit instantiation is allowed.
struct CloseHook {
  using Type = ACE_CLOSE_LOG_MSG_HOOK*;
  friend Type address(CloseHook);
};

template <class Name, typename Name::Type kMember>
struct Reach {
  friend typename Name::Type address(Name) { return kMember; }
};

template struct Reach<CloseHook, &ACE_Base_Thread_Adapter::close_log_msg_hook_>;

/// ACE sets the function whenever its count of log objects goes from 0 to 1. This one keeps the
/// count above 0, also where main() has ended its thread and another one logs for the first time.
[[gnu::used]] const ACE_Log_Msg* const kept = new ACE_Log_Msg;

/// Keeps ACE's log usable while static objects go. The system takes its memory back.
const ACE_CLOSE_LOG_MSG_HOOK closeOfAce = std::exchange(*address(CloseHook()), nullptr);

std::atomic<bool> ended{false};
std::atomic<int> underWay{0};

/// A record takes longer than this only where nobody reads standard error any more.
constexpr std::chrono::seconds kLongestRecord(3);

/// The last of this library that runs. ACE is unloaded behind it, and deletes its log lock even if
/// its log was never closed.
[[gnu::destructor]] void end() {
  ended = true;
  const auto giveUp = std::chrono::steady_clock::now() + kLongestRecord;
  while (underWay > 0 && std::chrono::steady_clock::now() < giveUp) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
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
    --underWay;
    return false;
  }
  return true;
}

}  // namespace

RecordUnderWay::RecordUnderWay() : mayGo_(begin()) {}

RecordUnderWay::~RecordUnderWay() {
  if (mayGo_) {
    --underWay;
  }
}

void RecordUnderWay::forgetAll() {
  underWay = 0;
}

void closeAceLog() {
  closeOfAce();
}

}  // namespace qov
