#include "frame/app_stop_watch.h"

#include <pthread.h>

#include <system_error>

#include "frame/app_signal_block.h"
#include "frame/app_signal_relay.h"
#include "module/shutdown_watch.h"

namespace qov {

StopWatch::StopWatch(ShutdownWatch& watch) : watch_(watch) {
  try {
    const SignalMask none(SIG_SETMASK, allSignals());
    thread_ = std::thread(&StopWatch::run, this);
    ::pthread_setname_np(thread_.native_handle(), "qov-stop-watch");
  } catch (const std::system_error&) {
  }
}

StopWatch::~StopWatch() {
  if (thread_.joinable()) {
    over_.store(true);
    SignalRelay::instance().endWaitForStop();
    thread_.join();
  }
  // The next event loop is not about to stop. A stop signal from here on ends it by its note.
  SignalRelay::forgetStop();
}

void StopWatch::run() {
  // A ring may be left from an earlier event loop.
  while (!over_.load() && !SignalRelay::stopHasCome()) {
    SignalRelay::instance().waitForStop();
  }
  if (SignalRelay::stopHasCome()) {
    watch_.begins();
  }
}

}  // namespace qov
