#include "frame/expendable_thread.h"

#include <pthread.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace qov {

namespace {

struct End {
  std::mutex mutex;
  std::condition_variable changed;
  bool reached = false;  // guarded by mutex
};

void run(const std::function<void()>& work, End& end) {
  ::pthread_setname_np(::pthread_self(), "qov-last-words");
  try {
    work();
  } catch (...) {
    // Nobody is left to tell.
  }
  const std::lock_guard<std::mutex> held(end.mutex);
  end.reached = true;
  end.changed.notify_all();
}

}  // namespace

bool endsWithin(std::chrono::milliseconds limit, std::function<void()> work) {
  const auto end = std::make_shared<End>();
  std::thread([work = std::move(work), end] { run(work, *end); }).detach();
  std::unique_lock<std::mutex> held(end->mutex);
  return end->changed.wait_for(held, limit, [&] { return end->reached; });
}

}  // namespace qov
