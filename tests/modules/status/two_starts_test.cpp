// Agents that begin at one moment with one path.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qovpub/qov_exception.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <optional>

#include "modules/status/listening_socket.h"
#include "tests/support/child.h"
#include "tests/support/files.h"

namespace qov::status {
namespace {

constexpr int kRounds = 50;

/// A process that makes the socket as soon as it may, and keeps it until its end.
class Starter {
 public:
  /// It may when the other end of `go` is closed.
  Starter(const Settings& settings, const std::array<int, 2>& go) {
    EXPECT_EQ(::pipe(told_.data()), 0);
    child_ = ::fork();
    if (child_ == 0) {
      ::close(go[1]);
      char none = 0;
      static_cast<void>(!::read(go[0], &none, 1));
      ::_exit(makes(settings) ? 0 : 1);
    }
    ::close(told_[1]);
  }
  ~Starter() { ::close(told_[0]); }
  Starter(const Starter&) = delete;
  Starter& operator=(const Starter&) = delete;

  bool hasTheSocket() const {
    char answer = 0;
    return ::read(told_[0], &answer, 1) == 1 && answer == 'y';
  }
  void end() const {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }

 private:
  bool makes(const Settings& settings) const try {
    const ListeningSocket socket(settings);
    static_cast<void>(!::write(told_[1], "y", 1));
    ::pause();
    return true;
  } catch (const CQOV_Exception&) {
    static_cast<void>(!::write(told_[1], "n", 1));
    return false;
  }

  std::array<int, 2> told_{};
  pid_t child_ = -1;
};

/// How many of two that begin at once, round after round, say that they have the socket.
class StatusStarts : public ::testing::Test {
 protected:
  StatusStarts() { settings_.socket = folder_.file("s"); }

  int startsTwo() {
    std::array<int, 2> go{};
    EXPECT_EQ(::pipe(go.data()), 0);
    const Starter one(settings_, go);
    const Starter other(settings_, go);
    ::close(go[0]);
    ::close(go[1]);
    const int have = (one.hasTheSocket() ? 1 : 0) + (other.hasTheSocket() ? 1 : 0);
    one.end();
    other.end();
    return have;
  }

  const test::TemporaryDirectory folder_;
  Settings settings_;
};

TEST_F(StatusStarts, OfTwoThatBeginAtOnceOneHasIt) {
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_EQ(startsTwo(), 1) << "in round " << round;
    ::unlink(settings_.socket.c_str());
  }
}

/// What the one before has left, who was killed.
TEST_F(StatusStarts, OfTwoThatFindAStaleFileOneHasIt) {
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_EQ(startsTwo(), 1) << "in round " << round;
    ASSERT_EQ(::access(settings_.socket.c_str(), F_OK), 0);
  }
}

TEST_F(StatusStarts, WhileAnotherOneMakesItNobodyElseDoes) {
  const std::string file = settings_.socket + ".lock";
  std::optional<Descriptor> other(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(::flock(other->get(), LOCK_EX), 0);
  EXPECT_THROW(const ListeningSocket socket(settings_), CQOV_Exception);
  EXPECT_EQ(::access(file.c_str(), F_OK), 0);
  // What a killed one has left is nobody's.
  other.reset();
  EXPECT_NO_THROW(const ListeningSocket socket(settings_));
  EXPECT_NE(::access(file.c_str(), F_OK), 0);
}

TEST(StatusSocket, IsNotKeptByAHelperThatOutlivesItsAgent) {
  const test::TemporaryDirectory folder;
  Settings settings;
  settings.socket = folder.file("s");
  std::array<int, 2> helper{};
  ASSERT_EQ(::pipe(helper.data()), 0);
  // The agent is gone without a word, its helper waits for the end of this test.
  ASSERT_TRUE(test::holdsInChild([&] {
    new ListeningSocket(settings);
    std::array<int, 2> forked{};
    EXPECT_EQ(::pipe(forked.data()), 0);
    if (::fork() == 0) {
      ::close(forked[0]);
      ::close(forked[1]);
      ::close(helper[1]);
      char none = 0;
      static_cast<void>(!::read(helper[0], &none, 1));
      ::_exit(0);
    }
    // Until the helper has begun.
    ::close(forked[1]);
    char none = 0;
    return ::read(forked[0], &none, 1) == 0;
  }));
  EXPECT_NO_THROW(const ListeningSocket next(settings));
  ::close(helper[0]);
  ::close(helper[1]);
}

}  // namespace
}  // namespace qov::status
