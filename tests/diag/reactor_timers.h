#ifndef QOV_TESTS_DIAG_REACTOR_TIMERS_H
#define QOV_TESTS_DIAG_REACTOR_TIMERS_H

#include <ace/Reactor.h>
#include <ace/Timer_Queue.h>

/// How many timers stand in the process's reactor.
inline int reactorTimers() {
  ACE_Timer_Queue_Iterator& each = ACE_Reactor::instance()->timer_queue()->iter();
  int count = 0;
  for (each.first(); !each.isdone(); each.next()) {
    ++count;
  }
  return count;
}

#endif
