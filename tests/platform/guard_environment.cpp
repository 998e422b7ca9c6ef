#include "tests/platform/guard_environment.h"

#include <ace/Log_Msg.h>
#include <gtest/gtest.h>
#include <qovplatform/platform_guard.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <ostream>
#include <streambuf>

#include "tests/support/counts.h"

namespace qov::test {
namespace {

// Where ACE writes its records to, from whichever thread.
class LogText : public std::streambuf {
 public:
  bool waitFor(const std::string& text) {
    std::unique_lock<std::mutex> held(lock_);
    return changed_.wait_for(held, std::chrono::seconds(60),
                             [&] { return text_.find(text) != std::string::npos; });
  }

  int countLines(const std::string& text) {
    const std::lock_guard<std::mutex> held(lock_);
    return timesOf(text, text_);
  }

 protected:
  int_type overflow(int_type c) override {
    const char byte = static_cast<char>(c);
    xsputn(&byte, 1);
    return c;
  }

  std::streamsize xsputn(const char* text, std::streamsize length) override {
    const std::lock_guard<std::mutex> held(lock_);
    text_.append(text, static_cast<std::size_t>(length));
    changed_.notify_all();
    return length;
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  std::string text_;
};

// Never destroyed, like the stream below: the watching thread may log until the process has ended.
LogText& logText() {
  static LogText& text = *new LogText;
  return text;
}

class GuardEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    // Before the first guard: the second's length is read once.
    ::setenv("PXOS_GUARD_SECOND_MS", "1", 1);
    logHere();
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::OSTREAM);
  }
};

const ::testing::Environment* const environment =
    ::testing::AddGlobalTestEnvironment(new GuardEnvironment);

}  // namespace

void logHere() {
  static std::ostream& stream = *new std::ostream(&logText());
  logTo(stream);
}

void logTo(std::ostream& stream) {
  ACE_LOG_MSG->msg_ostream(&stream, false);
}

bool waitForGuardLine(const std::string& text) {
  return logText().waitFor(text);
}

int countGuardLines(const std::string& text) {
  return logText().countLines(text);
}

bool letTheWatchLook() {
  static std::atomic<unsigned> round{1'000'000};
  const unsigned kind = ++round;
  const FowGuard probe(kind, 0, 1);
  return waitForGuardLine("kind " + std::to_string(kind) + ",");
}

}  // namespace qov::test
