#include "frame/start_report.h"

#include <cerrno>
#include <iostream>

#include "frame/app_daemon.h"
#include "frame/failure.h"

namespace qov {

StartReport::~StartReport() {
  if (page_ != nullptr) {
    page_->settle(StartOutcome::kFailed);
  }
}

void StartReport::becomeDaemon(const std::string& directory) {
  page_ = qov::becomeDaemon(directory);
  if (page_ == nullptr) {
    tell(textOf({"become a daemon", {}, 0, {}, errnoText(errno) + "; goes on in the foreground"}));
  }
}

void StartReport::succeeded() {
  if (page_ != nullptr) {
    page_->settle(StartOutcome::kStarted);
    page_.reset();
  }
}

void StartReport::heard(std::string_view message, bool onStandardError, bool nowhere) {
  if (page_ != nullptr) {
    page_->complaints.add(message);
  } else if (!onStandardError) {
    std::cerr << std::string(message) + "\n" << std::flush;
  }
  if (nowhere && ofDaemon_) {
    tellSystemLog(std::string(message));
  }
}

}  // namespace qov
