#include "diag/record_time.h"

#include <qovpub/qov_utility.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace qov {

namespace {

std::atomic<long> utcOffset{0};  // seconds east of UTC
std::atomic<bool> isKept{false};

/// By hand: gmtime_r() takes the lock, too. Years begin in March here, so that a leap day is the
/// last of its year, and a cycle of 400 years ends with one.
TimeText textOfLocal(time_t local) {
  constexpr long kSecondsPerDay = 86400;
  constexpr long kDaysPerCycle = 146097;
  constexpr long kDaysBefore1970 = 719468;  // since the March of the year 0
  const long days = local / kSecondsPerDay + kDaysBefore1970;
  const long dayOfCycle = days % kDaysPerCycle;
  const long yearOfCycle =
      (dayOfCycle - dayOfCycle / 1460 + dayOfCycle / 36524 - dayOfCycle / 146096) / 365;
  const long dayOfYear = dayOfCycle - (yearOfCycle * 365 + yearOfCycle / 4 - yearOfCycle / 100);
  const long monthFromMarch = (5 * dayOfYear + 2) / 153;
  const long day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
  const long month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
  const long year = days / kDaysPerCycle * 400 + yearOfCycle + (month < 3 ? 1 : 0);
  const long second = local % kSecondsPerDay;
  return TimeText("%04ld/%02ld/%02ld %02ld:%02ld:%02ld", year, month, day, second / 3600,
                  second / 60 % 60, second % 60);
}

}  // namespace

TimeText::TimeText(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(text_.data(), text_.size(), format, args);
  va_end(args);
  size_ = std::min(static_cast<size_t>(length), text_.size() - 1);
}

TimeText recordTime(time_t second) {
  return isKept ? textOfLocal(second + utcOffset)
                : TimeText("%s", UtcTimeToLocalTimeStr(second, "/").c_str());
}

TimeText recordOffset(time_t second) {
  if (!isKept) {
    utcOffset = UtcTimeToLocalTime(second).tm_gmtoff;
  }
  const long east = utcOffset;
  const long minutes = std::abs(east) / 60;
  return TimeText("%c%02ld:%02ld", east < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

void noteUtcOffset() {
  if (!isKept) {
    utcOffset = UtcTimeToLocalTime(time(nullptr)).tm_gmtoff;
  }
}

void keepUtcOffset() {
  isKept = true;
}

}  // namespace qov
