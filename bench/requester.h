#ifndef QOV_BENCH_REQUESTER_H
#define QOV_BENCH_REQUESTER_H

#include <qovpub/qov_task.h>

#include <atomic>
#include <thread>
#include <vector>

#include "bench/stopwatch.h"

/// A worker of one module that asks another one. Both modules are loaded with the first requester
/// and stay until the process ends.
class Requester {
 public:
  Requester();

  /// Sends a request and waits for its response. A failure ends the program.
  void request();

 private:
  CQOV_Task task_;
};

/// Lets `requesters` threads call `request(number)` `each` times; returns the seconds of `clock`
/// that all of them take.
template <class Request>
double secondsOfAll(clockid_t clock, std::size_t requesters, int each, const Request& request) {
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (std::size_t number = 0; number < requesters; ++number) {
    threads.emplace_back([&go, &request, each, number] {
      while (!go) {
        std::this_thread::yield();
      }
      for (int i = 0; i < each; ++i) {
        request(number);
      }
    });
  }
  const Stopwatch watch(clock);
  go = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  return watch.seconds();
}

#endif
