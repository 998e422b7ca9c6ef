#include "module/shutdown_watch.h"

#include <string>

#include "frame/current_step.h"
#include "frame/failure.h"
#include "frame/shutdown_supervision.h"
#include "module/last_words.h"

namespace qov {

namespace {

constexpr unsigned long long kHangId = 65750;

void tellWhatHangs() {
  const std::string step = CurrentStep::open();
  Failure failure;
  failure.tried = "stop within " + std::to_string(kShutdownSeconds) + " s";
  failure.cause = step.empty() ? "the main thread has not come to the stop signal" : step;
  tellLastWords(kHangId, withThreads(textOf(failure)));
}

}  // namespace

ShutdownWatch::ShutdownWatch() : monitor_(kShutdownSeconds) {
  beforeAbort(monitor_, &tellWhatHangs);
}

void ShutdownWatch::begins() {
  shutdownBegins(monitor_);
}

}  // namespace qov
