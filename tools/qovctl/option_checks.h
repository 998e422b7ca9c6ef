#ifndef QOV_TOOLS_QOVCTL_OPTION_CHECKS_H
#define QOV_TOOLS_QOVCTL_OPTION_CHECKS_H

#include <CLI/CLI.hpp>

#include <string>

#include "tools/qovctl/numbers.h"

namespace qov::ctl {

// Each gives what is wrong with an option's text, or nothing.

inline std::string checkTimeout(const std::string& text) {
  double seconds = 0;
  const bool number = CLI::detail::lexical_cast(text, seconds);
  return number && seconds >= 0.001 && seconds <= 86400 ? "" : "not within 0.001 to 86400 seconds";
}

/// An empty one is most likely a variable of a script that is not set.
inline std::string checkNotEmpty(const std::string& text) {
  return text.empty() ? "nothing is named" : "";
}

/// Adds an option that takes a number of 0 to `max`, as they are elsewhere on the command line.
template <class Number, class Value>
void addNumber(CLI::App* command, const std::string& name, Number max, Value& value,
               const std::string& description) {
  const auto check = [max](const std::string& text) {
    return numberOf(text, max) ? "" : "not a number from 0 to " + std::to_string(max);
  };
  const auto take = [&value, max](const std::string& text) {
    value = static_cast<Number>(numberOf(text, max).value_or(0));
  };
  command->add_option_function<std::string>(name, take, description)->check(check);
}

}  // namespace qov::ctl

#endif
