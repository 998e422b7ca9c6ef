#include "task/timer_wheel.h"

#include <ace/Event_Handler.h>
#include <ace/Event_Handler_Handle_Timeout_Upcall.h>
#include <ace/Free_List.h>
#include <ace/Null_Mutex.h>
#include <ace/Time_Policy.h>
#include <ace/Timer_Wheel_T.h>

#include <new>

namespace {

constexpr u_int kSpokes = 1024;
static_assert((kSpokes & (kSpokes - 1)) == 0, "ACE rounds it up, and there are nodes for so many");
constexpr u_int kResolutionMs = 100;

/// Makes the type of the wheel our own: what is said of it below holds for no other of the process.
struct TimerCall : ACE_Event_Handler_Handle_Timeout_Upcall {};

using TimerWheel =
    ACE_Timer_Wheel_T<ACE_Event_Handler*, TimerCall, ACE_Null_Mutex, ACE_HR_Time_Policy>;
using TimerNodes = ACE_Locked_Free_List<TimerWheel::Node, ACE_Null_Mutex>;

}  // namespace

/// Makes the spokes, or throws std::bad_alloc. ACE's own goes on without what it has no memory for,
/// and whoever then uses or destroys the wheel crashes. No iterator is made; nobody asks for one.
template <>
void TimerWheel::open_i(std::size_t, u_int spokes, u_int resolutionMs) {
  // The bits as ACE counts them.
  spoke_bits_ = power2bits(static_cast<int>(spokes), 3, 12);
  res_bits_ = power2bits(static_cast<int>(resolutionMs), 1, 20);
  wheel_time_.msec(1 << res_bits_);
  spoke_count_ = 1U << spoke_bits_;
  if (free_list_->size() < spoke_count_) {
    throw std::bad_alloc();
  }
  spokes_ = new Node*[spoke_count_];
  for (u_int i = 0; i < spoke_count_; ++i) {
    Node* const root = alloc_node();
    root->set(nullptr, nullptr, ACE_Time_Value::zero, ACE_Time_Value::zero, root, root, 0);
    spokes_[i] = root;
  }
}

namespace {

/// What the wheel uses to its end. ACE's wheel goes on without those that it cannot make itself.
struct TimerParts {
  TimerCall call_;
  TimerNodes nodes_{ACE_FREE_LIST_WITH_POOL, kSpokes};
};

class WholeTimerWheel : private TimerParts, public TimerWheel {
 public:
  WholeTimerWheel() : TimerWheel(kSpokes, kResolutionMs, 0, &call_, &nodes_) {}
};

}  // namespace

namespace qov {

std::unique_ptr<ACE_Timer_Queue> makeTimerWheel() {
  return std::make_unique<WholeTimerWheel>();
}

}  // namespace qov
