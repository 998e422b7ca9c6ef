#include <qovpub/qov_utility.h>

#include <cstdint>
#include <locale>
#include <sstream>

namespace {

std::string padded(long value, std::size_t width) {
  std::string digits = std::to_string(value);
  if (digits.size() < width) {
    digits.insert(0, width - digits.size(), '0');
  }
  return digits;
}

}  // namespace

struct tm UtcTimeToLocalTime(time_t t) {
  struct tm local {};
  ::tzset();
  // It leaves a half-made answer behind when the year is out of range.
  return ::localtime_r(&t, &local) != nullptr ? local : tm{};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is fixed
std::string UtcTimeToLocalTimeStr(time_t t, std::string dateSep) {
  const struct tm local = UtcTimeToLocalTime(t);
  // A long: the field itself stops 1900 short of the last year that it can name.
  std::string text = padded(local.tm_year + 1900L, 4);
  text += dateSep + padded(local.tm_mon + 1, 2);
  text += dateSep + padded(local.tm_mday, 2);
  text += ' ' + padded(local.tm_hour, 2);
  text += ':' + padded(local.tm_min, 2);
  text += ':' + padded(local.tm_sec, 2);
  return text;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is fixed
u_int StrToUint(std::string s) {
  std::istringstream stream(s);
  stream.imbue(std::locale::classic());  // what a file says does not depend on who reads it
  std::uint64_t value = 0;
  stream >> value;
  return static_cast<u_int>(value);
}

std::string IntToStr(int v) {
  return std::to_string(v);
}

std::string UintToStr(u_int v) {
  return std::to_string(v);
}
