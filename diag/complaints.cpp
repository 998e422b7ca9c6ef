#include "diag/complaints.h"

namespace qov {

namespace {

thread_local Complaints* listening = nullptr;

}  // namespace

Complaints::Complaints() {
  listening = this;
}

Complaints::~Complaints() {
  listening = nullptr;
}

bool Complaints::isListening() {
  return listening != nullptr;
}

void Complaints::tell(const LogLevel& level, const std::string& kitName, std::string_view message,
                      bool onStandardError) {
  const bool isError = level.priority == LM_ERROR || level.priority == LM_CRITICAL;
  const bool isOurWarning = level.priority == LM_WARNING && kitName == "QOVPUBLIC";
  if (listening != nullptr && (isError || isOurWarning)) {
    listening->heard(message, onStandardError);
  }
}

}  // namespace qov
