#include "platform/shutdown_watchdog.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "platform/all_signals_blocked.h"

namespace qov::platform {
namespace {

constexpr std::chrono::seconds kLongestTelling(5);

// A pipe that nobody reads, or a stopped terminal, may be what the shutdown hangs on: a write there
// would hang, too.
bool takesALine(int descriptor) {
  constexpr int kPatienceMs = 1000;
  pollfd wanted{descriptor, POLLOUT, 0};
  return ::poll(&wanted, 1, kPatienceMs) == 1 && (wanted.revents & POLLOUT) != 0;
}

// Straight to the descriptor: a hanging thread may hold the lock of stdio or of the log.
template <class... Arguments>
void writeToStandardError(const char* format, Arguments... arguments) {
  std::array<char, 160> line;
  const int length = std::snprintf(line.data(), line.size(), format, arguments...);
  if (length > 0 && takesALine(STDERR_FILENO) &&
      ::write(STDERR_FILENO, line.data(),
              std::min(static_cast<std::size_t>(length), line.size() - 1)) < 0) {
    return;  // nobody left to tell
  }
}

}  // namespace

ShutdownWatchdog::ShutdownWatchdog(std::chrono::nanoseconds second, unsigned seconds)
    : second_(second), seconds_(seconds) {}

ShutdownWatchdog::~ShutdownWatchdog() {
  std::thread watching;
  std::thread telling;
  {
    const std::lock_guard<std::mutex> held(lock_);
    over_ = true;
    watching.swap(watching_);
    telling.swap(telling_);
    changed_.notify_all();
  }
  for (std::thread* const thread : {&watching, &telling}) {
    if (thread->joinable()) {
      thread->join();
    }
  }
}

void ShutdownWatchdog::start() {
  const std::lock_guard<std::mutex> held(lock_);
  if (over_ || telling_.joinable()) {
    return;
  }
  const AllSignalsBlocked blocked;
  try {
    telling_ = std::thread(&ShutdownWatchdog::tell, this);
    pthread_setname_np(telling_.native_handle(), "qov-report");
    watching_ = std::thread(&ShutdownWatchdog::watch, this);
    pthread_setname_np(watching_.native_handle(), "qov-shutdown");
  } catch (const std::exception& error) {
    writeToStandardError("MonitorGuard: the shutdown of process %d is not supervised: %s\n",
                         static_cast<int>(::getpid()), error.what());
  }
}

bool ShutdownWatchdog::endsInTime(std::unique_lock<std::mutex>& held) {
  for (unsigned second = 0; second < seconds_ && !over_; ++second) {
    changed_.wait_for(held, second_, [this] { return over_; });
  }
  return over_;
}

void ShutdownWatchdog::watch() {
  std::unique_lock<std::mutex> held(lock_);
  if (!endsInTime(held)) {
    overdue_ = true;
    changed_.notify_all();
    changed_.wait_for(held, kLongestTelling, [this] { return told_; });
    std::abort();
  }
}

void ShutdownWatchdog::tell() {
  std::unique_lock<std::mutex> held(lock_);
  changed_.wait(held, [this] { return over_ || overdue_; });
  if (!overdue_) {
    return;
  }
  held.unlock();
  writeToStandardError(
      "MonitorGuard: the shutdown of process %d has not ended within %u s, aborting\n",
      static_cast<int>(::getpid()), seconds_);
  try {
    if (report_ != nullptr) {
      report_();
    }
  } catch (...) {
    // The line above has to do.
  }
  held.lock();
  told_ = true;
  changed_.notify_all();
}

}  // namespace qov::platform
