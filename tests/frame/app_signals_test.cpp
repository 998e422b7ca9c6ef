#include <ace/Reactor.h>
#include <ace/Reactor_Impl.h>
#include <ace/Thread.h>
#include <gtest/gtest.h>
#include <qovpub/qov_app.h>

#include <cerrno>
#include <csignal>
#include <thread>

#include "frame/app/app_signal_block.h"
#include "frame/app/app_signal_relay.h"

namespace {

ACE_Reactor& reactor() {
  return *ACE_Reactor::instance();
}

bool loopHasEnded() {
  return reactor().implementation()->deactivated() != 0;
}

/// Lets the process reactor handle what is ready.
void handleReadyEvents() {
  for (int i = 0; i < 10; ++i) {
    ACE_Time_Value none = ACE_Time_Value::zero;
    reactor().handle_events(none);
  }
}

class AppSignals : public ::testing::Test {
 protected:
  AppSignals() {
    reactor().owner(ACE_Thread::self());
    reactor().implementation()->deactivate(0);
  }
  ~AppSignals() override { reactor().implementation()->deactivate(0); }

  SigintHandler handler{nullptr};
  siginfo_t info{};
};

TEST_F(AppSignals, CalledDirectlySigintEndsTheLoopAtOnce) {
  EXPECT_EQ(handler.handle_signal(SIGINT), 0);
  EXPECT_TRUE(loopHasEnded());
}

TEST_F(AppSignals, CalledDirectlyOtherSignalsLeaveTheLoopRunning) {
  for (const int signum : {SIGPIPE, SIGUSR1, SIGUSR2, 0}) {
    EXPECT_EQ(handler.handle_signal(signum), 0);
  }
  EXPECT_FALSE(loopHasEnded());
}

TEST_F(AppSignals, CalledDirectlySigtermEndsTheLoopAtOnce) {
  EXPECT_EQ(handler.handle_signal(SIGTERM), 0);
  EXPECT_TRUE(loopHasEnded());
}

TEST_F(AppSignals, FromTheSystemSigintIsCarriedOutByTheReactor) {
  EXPECT_EQ(handler.handle_signal(SIGINT, &info), 0);
  EXPECT_FALSE(loopHasEnded());
  handleReadyEvents();
  EXPECT_TRUE(loopHasEnded());
}

TEST_F(AppSignals, FromTheSystemSigtermIsCarriedOutByTheReactor) {
  EXPECT_EQ(handler.handle_signal(SIGTERM, &info), 0);
  EXPECT_FALSE(loopHasEnded());
  handleReadyEvents();
  EXPECT_TRUE(loopHasEnded());
}

TEST_F(AppSignals, FromTheSystemOtherSignalsLeaveTheLoopRunning) {
  for (const int signum : {SIGPIPE, SIGUSR1, SIGUSR2}) {
    EXPECT_EQ(handler.handle_signal(signum, &info), 0);
  }
  handleReadyEvents();
  EXPECT_FALSE(loopHasEnded());
}

TEST_F(AppSignals, FromTheSystemMoreSignalsThanAPipeHoldsNeitherBlockNorGetLost) {
  constexpr int kMoreThanAPipeHolds = 70000;
  for (int i = 0; i < kMoreThanAPipeHolds; ++i) {
    handler.handle_signal(SIGUSR1, &info);
  }
  handler.handle_signal(SIGINT, &info);
  handleReadyEvents();
  EXPECT_TRUE(loopHasEnded());
}

TEST_F(AppSignals, FromTheSystemErrnoIsKept) {
  errno = ENOENT;
  handler.handle_signal(SIGINT, &info);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(AppSignals, RegisteredWithTheReactorARealSignalIsCarriedOutByIt) {
  ASSERT_EQ(reactor().register_handler(SIGUSR2, &handler), 0);
  ASSERT_EQ(reactor().register_handler(SIGINT, &handler), 0);
  ::raise(SIGUSR2);
  ::raise(SIGINT);
  EXPECT_FALSE(loopHasEnded());
  handleReadyEvents();
  EXPECT_TRUE(loopHasEnded());
  reactor().remove_handler(SIGINT, static_cast<ACE_Sig_Action*>(nullptr));
  reactor().remove_handler(SIGUSR2, static_cast<ACE_Sig_Action*>(nullptr));
}

TEST_F(AppSignals, OfSeveralHandlersTheLastOneMadeCarriesThemOut) {
  {
    SigintHandler other(nullptr);
    other.handle_signal(SIGINT, &info);
  }
  handleReadyEvents();
  EXPECT_FALSE(loopHasEnded()) << "the one that could do it is gone";
}

TEST_F(AppSignals, WhatCameBeforeAHandlerWasMadeIsNotForIt) {
  // As the second SIGINT of an impatient user is not for the next frame of the process.
  handler.handle_signal(SIGINT, &info);
  const SigintHandler next(nullptr);
  handleReadyEvents();
  EXPECT_FALSE(loopHasEnded());
}

bool isBlocked(int signum) {
  sigset_t mask;
  ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  return sigismember(&mask, signum) == 1;
}

TEST(AppSignalMask, KeepsTheSignalsFromThisThreadAndThoseItStarts) {
  const qov::SignalMask block(SIG_BLOCK, qov::loopSignals());
  EXPECT_TRUE(isBlocked(SIGINT));
  EXPECT_TRUE(isBlocked(SIGTERM));
  EXPECT_TRUE(isBlocked(SIGUSR1));
  EXPECT_FALSE(isBlocked(SIGPIPE));
  bool inherited = false;
  std::thread([&] {
    inherited = isBlocked(SIGINT) && isBlocked(SIGTERM) && isBlocked(SIGUSR1);
  }).join();
  EXPECT_TRUE(inherited);
}

TEST(AppSignalMask, GivesBackTheMaskThatWas) {
  sigset_t usr1;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
  { const qov::SignalMask block(SIG_BLOCK, qov::loopSignals()); }
  EXPECT_FALSE(isBlocked(SIGINT));
  EXPECT_FALSE(isBlocked(SIGTERM));
  EXPECT_TRUE(isBlocked(SIGUSR1));
  ::pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr);
}

TEST(AppBrokenPipes, AreIgnoredUnlessTheProgramHandlesThem) {
  ::signal(SIGPIPE, SIG_DFL);
  qov::ignoreBrokenPipes();
  EXPECT_EQ(::signal(SIGPIPE, SIG_DFL), SIG_IGN);

  const auto own = [](int) {};
  ::signal(SIGPIPE, own);
  qov::ignoreBrokenPipes();
  EXPECT_EQ(::signal(SIGPIPE, SIG_DFL), static_cast<void (*)(int)>(own));
}

}  // namespace
