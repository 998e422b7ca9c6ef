#ifndef QOV_TASK_TIMER_WHEEL_H
#define QOV_TASK_TIMER_WHEEL_H

#include <ace/Timer_Queue_T.h>
#include <ace/Timer_Queuefwd.h>

#include <memory>

namespace qov {

/// A timer wheel of 1024 spokes and 100 ms that runs on the high-resolution clock. It has no lock.
/// Throws std::bad_alloc.
std::unique_ptr<ACE_Timer_Queue> makeTimerWheel();

}  // namespace qov

#endif
