#include "diag/log_value.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace qov {

namespace {

struct Number {
  int value;
  bool isWhole;  ///< the text is a number and nothing else
  bool fits;
};

Number read(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text.c_str(), &end, 10);
  const int nearest = static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
  return {nearest, !text.empty() && end == text.c_str() + text.size(),
          errno == 0 && value == nearest};
}

std::string whyOdd(const std::string& text, int least, int most) {
  const Number number = read(text);
  const int taken = std::clamp(number.value, least, most);
  if (number.isWhole && number.fits && taken == number.value) {
    return {};
  }
  return "\"" + text + "\" is " + (number.isWhole ? "out of range" : "no whole number") + ", " +
         std::to_string(taken) + " is taken";
}

}  // namespace

const std::array<LogKey, 5> kLogKeys = {
    {{"SendTerminal", &CLogging_Cfg_Param::sendTerminal_, INT_MIN, INT_MAX},
     {"ChkInterval", &CLogging_Cfg_Param::chkInterval_, 0, INT_MAX},
     {"LogFileMaxSize", &CLogging_Cfg_Param::logFileMaxSize_, 0, INT_MAX},
     {"LogFileMaxCnt", &CLogging_Cfg_Param::logFileMaxCnt_, 1, INT_MAX},
     {"LogLevel", &CLogging_Cfg_Param::logLevel_, 0, kMaxLevel}}};

const std::array<LogFormKey, 3> kLogFormKeys = {
    {{"LogFold", LogForm::kFold}, {"LogJson", LogForm::kJson}, {"LogEscape", LogForm::kEscape}}};

int toInt(const std::string& text) {
  return read(text).value;
}

std::string whyOdd(const LogKey& key, const std::string& text) {
  return whyOdd(text, key.least, key.most);
}

std::string whyOddSwitch(const std::string& text) {
  return whyOdd(text, 0, 1);
}

bool isSwitchedOn(const std::string& text) {
  return toInt(text) > 0;
}

}  // namespace qov
