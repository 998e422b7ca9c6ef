#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <qovpub/qov_common_debugkit.h>

#include <unistd.h>

#include <atomic>
#include <functional>
#include <streambuf>
#include <thread>
#include <vector>

#include "tests/diag/log_capture.h"
#include "tests/support/cancelled_thread.h"
#include "tests/support/latch.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

class RecordOutput : public testing::Test {
 protected:
  const CQOVDebugKit kit_{"KIT", 5};
  LogCapture capture_;
};

TEST_F(RecordOutput, WritesARecordOf65536CharactersWhole) {
  const std::string message(65536, 'x');
  kit_.info(1, "f", 2, message);
  EXPECT_THAT(capture_.text(), EndsWith("] " + message + "\n"));
  EXPECT_EQ(capture_.lines(), 1);
}

TEST_F(RecordOutput, WritesToStandardError) {
  LogCapture::log().clr_flags(ACE_Log_Msg::OSTREAM);
  LogCapture::log().set_flags(ACE_Log_Msg::STDERR);
  const std::string message(65536, 'x');
  testing::internal::CaptureStderr();
  kit_.info(1, "f", 2, message);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith("] " + message + "\n"));
  EXPECT_EQ(capture_.text(), "");
}

TEST_F(RecordOutput, WritesToStandardErrorAndTheStreamWhenBothAreOn) {
  LogCapture::log().set_flags(ACE_Log_Msg::STDERR);
  testing::internal::CaptureStderr();
  kit_.info(1, "f", 2, "m");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), capture_.text());
}

TEST_F(RecordOutput, WritesNothingWhenAceIsSilent) {
  LogCapture::log().set_flags(ACE_Log_Msg::SILENT);
  kit_.info(1, "f", 2, "m");
  EXPECT_EQ(capture_.text(), "");
}

class Listener : public ACE_Log_Msg_Callback {
 public:
  void log(ACE_Log_Record& record) override { heard_ += record.msg_data(); }
  std::string heard_;
};

TEST_F(RecordOutput, ReachesACallback) {
  Listener listener;
  LogCapture::log().msg_callback(&listener);
  LogCapture::log().set_flags(ACE_Log_Msg::MSG_CALLBACK);
  kit_.info(1, "f", 2, "100%s %n");
  EXPECT_THAT(listener.heard_, EndsWith("] 100%s %n\n"));
  EXPECT_EQ(capture_.text(), listener.heard_);
  listener.heard_.clear();
  const std::string message(65536, 'x');
  kit_.info(1, "f", 2, message);
  EXPECT_THAT(listener.heard_, EndsWith("] " + message + "\n"));
  LogCapture::log().msg_callback(nullptr);
}

/// Waits in its callback for another thread that logs, as one does that shares a mutex with it.
class WaitingListener : public ACE_Log_Msg_Callback {
 public:
  WaitingListener(const CQOVDebugKit& kit, std::ostream& stream) : kit_(kit), stream_(stream) {}
  ~WaitingListener() override {
    for (std::thread& other : others_) {
      other.join();
    }
  }

  void log(ACE_Log_Record&) override {
    others_.emplace_back([this] {
      LogCapture::log().msg_ostream(&stream_, false);
      kit_.info(1, "f", 2, "from the other");
      LogCapture::log().msg_ostream(nullptr, false);
      logged_.count();
    });
    othersHaveLogged_ &= logged_.waitFor(static_cast<int>(others_.size()));
  }

  int calls() const { return static_cast<int>(others_.size()); }
  bool othersHaveLogged() const { return othersHaveLogged_; }

 private:
  const CQOVDebugKit& kit_;
  std::ostream& stream_;
  Latch logged_;
  std::vector<std::thread> others_;
  bool othersHaveLogged_ = true;
};

TEST_F(RecordOutput, LetsOthersLogWhileACallbackHasItsRecordWhateverItsLength) {
  WaitingListener listener(kit_, capture_.stream());
  LogCapture::log().msg_callback(&listener);
  LogCapture::log().set_flags(ACE_Log_Msg::MSG_CALLBACK);
  kit_.info(1, "f", 2, "short");
  kit_.info(1, "f", 2, std::string(5000, 'x'));
  LogCapture::log().msg_callback(nullptr);
  EXPECT_EQ(listener.calls(), 3) << "one for the short record, two for the long one";
  EXPECT_TRUE(listener.othersHaveLogged());
}

TEST_F(RecordOutput, KeepsAcesOwnDecorationsWhereTheyAreOn) {
  LogCapture::log().set_flags(ACE_Log_Msg::VERBOSE_LITE);
  kit_.info(1, "f", 2, "m");
  EXPECT_THAT(capture_.text(), HasSubstr("@LM_INFO@["));
  EXPECT_THAT(capture_.text(), EndsWith("] m\n"));
}

/// A destination that refuses everything until told otherwise.
class FullDisk : public std::streambuf {
 public:
  bool full_ = true;
  std::string text_;

 protected:
  std::streamsize xsputn(const char* from, std::streamsize size) override {
    if (full_) {
      return 0;
    }
    text_.append(from, static_cast<size_t>(size));
    return size;
  }
  int overflow(int c) override {
    if (full_) {
      return traits_type::eof();
    }
    text_.push_back(static_cast<char>(c));
    return c;
  }
};

TEST_F(RecordOutput, GoesOnWithAStreamThatFailedForAWhile) {
  FullDisk disk;
  std::ostream stream(&disk);
  LogCapture::log().msg_ostream(&stream);
  kit_.info(1, "f", 2, "lost");
  disk.full_ = false;
  kit_.info(1, "f", 2, "kept");
  EXPECT_THAT(disk.text_, EndsWith("] kept\n"));
}

TEST_F(RecordOutput, SurvivesAStreamThatThrows) {
  FullDisk disk;
  std::ostream stream(&disk);
  stream.exceptions(std::ios_base::badbit | std::ios_base::failbit);
  LogCapture::log().msg_ostream(&stream);
  EXPECT_NO_THROW(kit_.info(1, "f", 2, "lost"));
  disk.full_ = false;
  kit_.info(1, "f", 2, "kept");
  EXPECT_THAT(disk.text_, EndsWith("] kept\n"));
}

TEST_F(RecordOutput, NeverMixesTheRecordsOfTwoThreads) {
  constexpr int kRecords = 50;
  std::ostream* const shared = LogCapture::log().msg_ostream();
  const auto logMany = [this, shared](char letter, size_t size) {
    LogCapture::log().msg_ostream(shared);
    for (int i = 0; i < kRecords; ++i) {
      kit_.info(1, "f", 2, std::string(size, letter));
    }
    LogCapture::log().msg_ostream(nullptr);
  };
  std::thread a(logMany, 'a', 65536);
  std::thread b(logMany, 'b', 9000);
  std::thread c(logMany, 'c', 10);
  a.join();
  b.join();
  c.join();
  std::istringstream lines(capture_.text());
  int whole = 0;
  for (std::string line; std::getline(lines, line); ++whole) {
    const std::string message = line.substr(line.rfind("] ") + 2);
    EXPECT_TRUE(message == std::string(65536, 'a') || message == std::string(9000, 'b') ||
                message == std::string(10, 'c'));
  }
  EXPECT_EQ(whole, 3 * kRecords);
}

/// Hears the second piece of a record that goes in several, and has another thread log then.
class Interrupter : public ACE_Log_Msg_Callback {
 public:
  explicit Interrupter(std::function<void()> other) : other_(std::move(other)) {}

  void log(ACE_Log_Record&) override {
    if (++heard_ == 2) {
      std::thread(other_).join();
    }
  }

 private:
  const std::function<void()> other_;
  int heard_ = 0;
};

TEST_F(RecordOutput, LetsNoOtherRecordIntoOneThatGoesInPieces) {
  std::ostream* const shared = LogCapture::log().msg_ostream();
  Interrupter interrupter([this, shared] {
    LogCapture::log().msg_ostream(shared);
    kit_.info(1, "f", 2, "of another thread");
  });
  LogCapture::log().msg_callback(&interrupter);
  LogCapture::log().set_flags(ACE_Log_Msg::MSG_CALLBACK);
  const std::string message(9000, 'x');
  kit_.info(1, "f", 2, message);
  LogCapture::log().msg_callback(nullptr);
  EXPECT_THAT(capture_.text(), HasSubstr("] of another thread\n"));
  EXPECT_THAT(capture_.text(), EndsWith("] " + message + "\n"));
}

/// Standard error is a pipe that refuses what does not fit.
class NonBlockingStandardError {
 public:
  NonBlockingStandardError() : kept_(::dup(STDERR_FILENO)) {
    EXPECT_EQ(::pipe(ends_), 0);
    ::fcntl(ends_[1], F_SETFL, O_NONBLOCK);
    ::dup2(ends_[1], STDERR_FILENO);
    ::close(ends_[1]);
  }
  ~NonBlockingStandardError() {
    restore();
    ::close(ends_[0]);
  }
  NonBlockingStandardError(const NonBlockingStandardError&) = delete;
  NonBlockingStandardError& operator=(const NonBlockingStandardError&) = delete;

  void restore() {
    if (kept_ >= 0) {
      ::dup2(kept_, STDERR_FILENO);
      ::close(kept_);
      kept_ = -1;
    }
  }

  /// All that is written until restore() was called.
  std::string readAll() const {
    std::string all;
    char part[4096];
    for (ssize_t size = 0; (size = ::read(ends_[0], part, sizeof(part))) > 0;) {
      all.append(part, static_cast<size_t>(size));
    }
    return all;
  }

 private:
  int kept_;
  int ends_[2] = {-1, -1};
};

TEST_F(RecordOutput, WritesWholeToAStandardErrorThatDoesNotBlock) {
  LogStateKeeper::useFlags(ACE_Log_Msg::STDERR);
  NonBlockingStandardError standardError;
  const std::string message(65536, 'x');
  std::string received;
  std::thread reader([&] { received = standardError.readAll(); });
  for (int i = 0; i < 5; ++i) {
    kit_.info(1, "f", 2, message);
  }
  standardError.restore();
  reader.join();
  EXPECT_EQ(std::count(received.begin(), received.end(), '\n'), 5);
  EXPECT_EQ(std::count(received.begin(), received.end(), 'x'), 5 * 65536);
}

/// A stream in which a thread can be cancelled.
class Interruptible : public std::stringbuf {
 protected:
  int sync() override {
    pthread_testcancel();
    return 0;
  }
};

TEST_F(RecordOutput, LetsAThreadBeCancelledOnlyAfterItsRecord) {
  Interruptible buffer;
  std::ostream stream(&buffer);
  qov::test::cancelIn([&] {
    LogCapture::log().msg_ostream(&stream, false);
    kit_.info(1, "f", 2, "whole");
  });
  EXPECT_THAT(buffer.str(), EndsWith("] whole\n"));
}

}  // namespace
