#ifndef QOV_TASK_TIME_SPAN_H
#define QOV_TASK_TIME_SPAN_H

#include <ace/Time_Value.h>

#include <algorithm>

namespace qov {

/// `span`, at most 200 years either way: longer ones make no difference to anybody, but overflow
/// when they are added to a time.
inline ACE_Time_Value limitedSpan(const ACE_Time_Value& span) {
  const ACE_Time_Value longest(200LL * 365 * 24 * 3600);
  return std::clamp(span, ACE_Time_Value::zero - longest, longest);
}

}  // namespace qov

#endif
