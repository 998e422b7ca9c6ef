#include "frame/env/failure.h"

#include <sys/wait.h>

#include <cstring>
#include <system_error>

namespace qov {

std::string textOf(const Failure& failure) {
  std::string text = "Failed to " + failure.tried;
  if (!failure.file.empty()) {
    text += ": " + failure.file;
    if (failure.line != 0) {
      text += ':' + std::to_string(failure.line);
    }
  }
  if (!failure.key.empty()) {
    text += ": " + failure.key;
  }
  if (!failure.cause.empty()) {
    text += ": " + failure.cause;
  }
  return text;
}

std::string wayOfEnd(int status) {
  if (WIFSIGNALED(status)) {
    return "ended by signal " + std::to_string(WTERMSIG(status)) + " (" +
           ::strsignal(WTERMSIG(status)) + ")";
  }
  return "ended with exit status " + std::to_string(WEXITSTATUS(status));
}

std::string errnoText(int error) {
  return std::generic_category().message(error);
}

}  // namespace qov
