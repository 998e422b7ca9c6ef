#ifndef QOV_TESTS_SUPPORT_FAILING_THREADS_H
#define QOV_TESTS_SUPPORT_FAILING_THREADS_H

namespace qov::test {

/// Lets the process start `count` more threads and none from then on, until it goes out of scope:
/// the system has none left. A program with failing_threads.cpp has its own pthread_create().
class FailingThreads {
 public:
  explicit FailingThreads(int count);
  ~FailingThreads();
  FailingThreads(const FailingThreads&) = delete;
  FailingThreads& operator=(const FailingThreads&) = delete;

  /// How many threads could not be started.
  int failures() const;
};

}  // namespace qov::test

#endif
