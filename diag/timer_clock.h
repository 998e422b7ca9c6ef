#ifndef QOV_DIAG_TIMER_CLOCK_H
#define QOV_DIAG_TIMER_CLOCK_H

class ACE_Reactor;

namespace qov {

/// Makes the timers of `reactor` go by ACE's high resolution clock, which no one can set. Timers
/// that are waiting keep the time that is left to them. Called again it changes nothing.
void useHighResolutionClock(ACE_Reactor& reactor);

}  // namespace qov

#endif
