#include "diag/timer_clock.h"

#include <ace/Guard_T.h>
#include <ace/High_Res_Timer.h>
#include <ace/Reactor.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Timer_Heap.h>
#include <ace/Timer_Queue.h>

#include <optional>

namespace qov {

namespace {

using Guard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

/// Takes the lock of a reactor's own kind of queue; one of another kind is its owner's business.
void lock(ACE_Timer_Queue& timers, std::optional<Guard>& guard) {
  if (auto* const heap = dynamic_cast<ACE_Timer_Heap*>(&timers)) {
    guard.emplace(heap->mutex());
  }
}

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
  std::optional<Guard> guard;
  lock(*timers, guard);
  const ACE_Time_Value ahead = ACE_High_Res_Timer::gettimeofday_hr() - timers->gettimeofday();
  // A new queue may stand where one that was switched has been. The two clocks are years apart,
  // and no pause between the two readings above is as long as this.
  const ACE_Time_Value clocksDiffer(3600);
  if (switched == timers && ahead < clocksDiffer && ahead > ACE_Time_Value(-3600)) {
    return;
  }
  timers->gettimeofday(&ACE_High_Res_Timer::gettimeofday_hr);
  moveTimers(*timers, ahead);
  switched = timers;
}

}  // namespace qov
