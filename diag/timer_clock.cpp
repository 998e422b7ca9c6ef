#include "diag/timer_clock.h"

#include <ace/High_Res_Timer.h>
#include <ace/Reactor.h>
#include <ace/Timer_Queue.h>

namespace qov {

namespace {

/// Moves every waiting timer by the same amount, which keeps the queue's order.
void moveTimers(ACE_Timer_Queue& timers, const ACE_Time_Value& by) {
  ACE_Timer_Queue_Iterator& each = timers.iter();
  for (each.first(); !each.isdone(); each.next()) {
    each.item()->set_timer_value(each.item()->get_timer_value() + by);
  }
}

}  // namespace

void useHighResolutionClock(ACE_Reactor& reactor) {
  static const ACE_Timer_Queue* switched = nullptr;
  ACE_Timer_Queue* const timers = reactor.timer_queue();
  if (timers == nullptr) {
    return;
  }
  ACE_High_Res_Timer::global_scale_factor();
  const ACE_Time_Value ahead = ACE_High_Res_Timer::gettimeofday_hr() - timers->gettimeofday();
  const ACE_Time_Value second(1);
  if (switched == timers && ahead < second && ahead > ACE_Time_Value(-1)) {
    return;
  }
  timers->gettimeofday(&ACE_High_Res_Timer::gettimeofday_hr);
  moveTimers(*timers, ahead);
  switched = timers;
}

}  // namespace qov
