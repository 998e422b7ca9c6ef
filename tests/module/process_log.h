#ifndef QOV_TESTS_MODULE_PROCESS_LOG_H
#define QOV_TESTS_MODULE_PROCESS_LOG_H

#include <ace/Log_Msg.h>

#include <condition_variable>
#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

namespace qov::test {

/// Sends what the calling thread logs, and the threads that it starts, into a text until it goes.
class ProcessLog {
 public:
  static constexpr u_long kAllLevels = 0x7FF;

  explicit ProcessLog(u_long mask = kAllLevels);
  ~ProcessLog();

  ProcessLog(const ProcessLog&) = delete;
  ProcessLog& operator=(const ProcessLog&) = delete;

  std::string text() const { return buffer_.text(); }
  void clear() { buffer_.clear(); }

  /// The messages of the calling thread's records with `tag`, without the bracketed fields.
  std::vector<std::string> messages(const std::string& tag) const;

  /// Waits until any thread has logged `text` `count` times; false after a generous limit.
  bool waitFor(const std::string& text, int count = 1) const {
    return buffer_.waitFor(text, count);
  }

 private:
  /// Written to under ACE's lock, read whenever the test likes.
  class Buffer : public std::streambuf {
   public:
    std::string text() const;
    void clear();
    /// As ProcessLog::waitFor().
    bool waitFor(const std::string& part, int count) const;

   protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* s, std::streamsize n) override;

   private:
    mutable std::mutex mutex_;
    mutable std::condition_variable grown_;
    std::string text_;
  };

  Buffer buffer_;
  std::ostream stream_{&buffer_};
  const u_long flags_;
  std::ostream* const formerStream_;
  const u_long formerMask_;
};

}  // namespace qov::test

#endif
