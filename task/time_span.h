#ifndef QOV_TASK_TIME_SPAN_H
#define QOV_TASK_TIME_SPAN_H

#include <ace/OS_NS_sys_time.h>
#include <ace/Time_Value.h>

#include <algorithm>
#include <chrono>
#include <optional>

namespace qov {

/// `span`, at most 200 years either way: longer ones make no difference to anybody, but overflow
/// when they are added to a time.
inline ACE_Time_Value limitedSpan(const ACE_Time_Value& span) {
  const ACE_Time_Value longest(200LL * 365 * 24 * 3600);
  return std::clamp(span, ACE_Time_Value::zero - longest, longest);
}

/// The moment at which `timeout`, an absolute time of day, comes; none without it. On the steady
/// clock, so that a change of the time of day does not stretch a wait that has begun.
inline std::optional<std::chrono::steady_clock::time_point> steadyDeadline(
    const ACE_Time_Value* timeout) {
  if (timeout == nullptr) {
    return std::nullopt;
  }
  const ACE_Time_Value left = limitedSpan(limitedSpan(*timeout) - ACE_OS::gettimeofday());
  return std::chrono::steady_clock::now() + std::chrono::seconds(left.sec()) +
         std::chrono::microseconds(left.usec());
}

/// Of a span as limitedSpan() gives it.
inline std::chrono::nanoseconds nanosecondsOf(const ACE_Time_Value& span) {
  return std::chrono::seconds(span.sec()) + std::chrono::microseconds(span.usec());
}

}  // namespace qov

#endif
