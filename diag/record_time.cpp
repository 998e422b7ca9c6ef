#include "diag/record_time.h"

#include <qovpub/qov_utility.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace qov {

namespace {

long utcOffset = 0;  // seconds east of UTC
bool isKept = false;

/// By hand: gmtime_r() takes the lock, too. Years begin in March here, so that a leap day is the
/// last of its year, and a cycle of 400 years ends with one.
std::string textOfLocal(time_t local) {
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
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%04ld/%02ld/%02ld %02ld:%02ld:%02ld", year, month, day,
                second / 3600, second / 60 % 60, second % 60);
  return text.data();
}

}  // namespace

std::string recordTime(time_t second) {
  return isKept ? textOfLocal(second + utcOffset) : UtcTimeToLocalTimeStr(second, "/");
}

std::string recordOffset(time_t second) {
  const long east = isKept ? utcOffset : UtcTimeToLocalTime(second).tm_gmtoff;
  const long minutes = std::abs(east) / 60;
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%c%02ld:%02ld", east < 0 ? '-' : '+', minutes / 60,
                minutes % 60);
  return text.data();
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
