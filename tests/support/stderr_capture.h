#ifndef QOV_TESTS_SUPPORT_STDERR_CAPTURE_H
#define QOV_TESTS_SUPPORT_STDERR_CAPTURE_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

/// Reads what the whole process writes to standard error, and passes it on, until it goes out of
/// scope. That is where log records of every thread go before a logging strategy is in force.
class StderrCapture {
 public:
  static constexpr std::chrono::seconds kPatience{60};

  StderrCapture();
  ~StderrCapture();

  StderrCapture(const StderrCapture&) = delete;
  StderrCapture& operator=(const StderrCapture&) = delete;

  /// True once `text` has been written `times` times; false when that did not come true in time.
  bool waitFor(const std::string& text, int times = 1);

  /// What has been written: all that was written before this call.
  std::string text();

  /// How often `text` has been written, counting all that was written before this call.
  int count(const std::string& text);

 private:
  void read();
  void flush();

  int saved_;
  int pipe_[2];
  int marks_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string text_;
  std::thread reader_;
};

#endif
