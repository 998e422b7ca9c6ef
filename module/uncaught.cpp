#include "module/uncaught.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "diag/log_ids.h"
#include "diag/standard_error.h"
#include "diag/uncancelled.h"
#include "frame/env/current_step.h"
#include "frame/env/failure.h"
#include "module/last_words.h"
#include "platform/signal_mask.h"

namespace qov {
namespace {

/// A log that hangs must not keep the process.
constexpr unsigned kMostSecondsOfTelling = 5;

std::string causeOf(const std::exception_ptr& exception) {
  if (exception == nullptr) {
    return "std::terminate() was called";
  }
  try {
    std::rethrow_exception(exception);
  } catch (const std::bad_alloc&) {
    return errnoText(ENOMEM);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "an exception of unknown type";
  }
}

using ThreadName = std::array<char, 16>;

ThreadName nameOfThread() {
  ThreadName name{};
  ::pthread_getname_np(::pthread_self(), name.data(), name.size());
  return name;
}

std::string whereAndWhy() {
  const std::string step = CurrentStep::open();
  return textOf({std::string("go on in thread ") + nameOfThread().data() +
                     (step.empty() ? "" : ", while " + step),
                 {},
                 0,
                 {},
                 causeOf(std::current_exception())});
}

/// The same, made without memory.
void tellWithoutMemory() {
  std::array<char, 80> line{};
  const int length = std::snprintf(line.data(), line.size(), "Failed to go on in thread %s: %s\n",
                                   nameOfThread().data(), "Cannot allocate memory");
  writeStandardError({line.data(), static_cast<std::size_t>(length)});
}

[[noreturn]] void tellAndAbort() {
  static std::mutex oneThread;
  static thread_local bool begun = false;
  if (std::exchange(begun, true)) {
    std::abort();
  }
  // To the end: neither a cancellation nor a signal but the alarm cuts the words.
  const Uncancelled telling;
  oneThread.lock();
  std::signal(SIGALRM, SIG_IGN);  // drops one that is pending
  ::alarm(kMostSecondsOfTelling);
  std::signal(SIGALRM, SIG_DFL);
  sigset_t allButTheAlarm = allSignals();
  sigdelset(&allButTheAlarm, SIGALRM);
  const SignalMask heeding(SIG_SETMASK, allButTheAlarm);
  try {
    tellLastWords(log_id::kUncaught, {whereAndWhy()});
  } catch (const std::bad_alloc&) {
    tellWithoutMemory();
  }
  std::abort();
}

}  // namespace

void tellUncaught() {
  if (std::get_terminate() == &__gnu_cxx::__verbose_terminate_handler) {
    std::set_terminate(&tellAndAbort);
  }
}

}  // namespace qov
