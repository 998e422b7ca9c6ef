#include "frame/app/start_report.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "frame/app/app_daemon.h"
#include "frame/env/current_step.h"
#include "frame/env/failure.h"

namespace qov {
namespace {

/// The process that starts in the foreground, for exit(); its children are not meant.
std::atomic<pid_t> starting{0};

void tellExit() {
  if (starting == ::getpid()) {
    std::cerr << textOf({"start the agent",
                         {},
                         0,
                         {},
                         "exit() was called" + beforeItRan(CurrentStep::open())}) +
                     "\n"
              << std::flush;
  }
}

void watchForExit() {
  static const int registered = std::atexit(&tellExit);
  static_cast<void>(registered);
  starting = ::getpid();
}

}  // namespace

StartReport::StartReport(bool ofDaemon) : ofDaemon_(ofDaemon) {
  // Whoever becomes a daemon exits in several processes, and each says itself why.
  if (!ofDaemon) {
    watchForExit();
  }
}

StartReport::~StartReport() {
  starting = 0;
  if (page_ != nullptr) {
    CurrentStep::showIn(nullptr);
    page_->settle(StartOutcome::kFailed);
  }
}

void StartReport::becomeDaemon(const std::string& directory) {
  page_ = qov::becomeDaemon(directory);
  if (page_ == nullptr) {
    tell(textOf({"become a daemon", {}, 0, {}, errnoText(errno) + "; goes on in the foreground"}));
    watchForExit();
    return;
  }
  CurrentStep::showIn(&page_->steps);
}

void StartReport::succeeded() {
  if (page_ != nullptr) {
    CurrentStep::showIn(nullptr);
    page_->settle(StartOutcome::kStarted);
    page_.reset();
  }
}

void StartReport::heard(std::string_view message, bool onStandardError, bool nowhere) {
  if (page_ != nullptr) {
    page_->complaints.add(message);
  } else if (!onStandardError) {
    // At once and without memory.
    std::fprintf(stderr, "%.*s\n", static_cast<int>(message.size()), message.data());
  }
  if (nowhere && ofDaemon_) {
    tellSystemLog(message);
  }
}

}  // namespace qov
