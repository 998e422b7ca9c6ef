#include <gtest/gtest.h>
#include <qovpub/qov_testkit.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr unsigned int kModule = 42;
constexpr std::uint8_t kOther = 43;
constexpr std::uint64_t kRead = 1;

/// Its handler does what the test says.
class Worker : public CQOV_AnsweringTask {
 public:
  using CQOV_AnsweringTask::CQOV_AnsweringTask;

  int handleMessage(CQOV_MsgPackage& message) override {
    act_(message);
    return 0;
  }
  int handleRequest(CQOV_MsgPackage&, CQOV_MsgPackage*&) override { return 0; }

  std::function<void(CQOV_MsgPackage&)> act_;
};

class TestKitLater : public ::testing::Test {
 protected:
  /// Asks without waiting, and notes what comes of it.
  QOVReason ask(std::uint64_t opc = kRead, seconds timeout = seconds(5)) {
    return QOVRequest(worker_, kOther, opc).askLater(timeout, note());
  }

  QOVRequest::Continuation note() {
    return [this](QOVAnswer answer) {
      reasons_.push_back(answer.reason());
      last_ = std::move(answer);
    };
  }

  /// Has the worker do `act` in its handler.
  int handle(std::function<void(CQOV_MsgPackage&)> act) {
    worker_.act_ = std::move(act);
    CQOV_MsgPackage message = kit_.message(7);
    return kit_.handle(worker_, message);
  }

  QOVTestKit kit_{kModule};
  Worker worker_{kit_.module()};
  std::vector<QOVReason> reasons_;
  QOVAnswer last_{QOVReason::kNone};
};

using Reasons = std::vector<QOVReason>;

}  // namespace

TEST_F(TestKitLater, RunsTheContinuationWithTheAnswerBehindTheHandler) {
  kit_.answer(kOther, kRead, [](const CQOV_MsgPackage&, CQOV_MsgPackage& answer) {
    answer.addRecord(kRead).addUnsigned(1, 17);
  });
  handle([this](CQOV_MsgPackage&) {
    EXPECT_EQ(ask(), QOVReason::kNone);
    EXPECT_TRUE(reasons_.empty());
  });

  EXPECT_EQ(reasons_, Reasons{QOVReason::kNone});
  ASSERT_TRUE(last_);
  EXPECT_EQ((*last_)[0].getUnsigned(1), 17U);
  EXPECT_EQ(kit_.sent().size(), 1U);
  EXPECT_EQ(kit_.now(), QOVTestKit::Duration::zero());
}

TEST_F(TestKitLater, GivesTheRequesterWhatAContinuationAnswers) {
  kit_.answer(kOther, kRead);
  worker_.act_ = [this](CQOV_MsgPackage& message) {
    const QOVMsgHead asked = message.head();
    ASSERT_EQ(QOVRequest(worker_, kOther, kRead)
                  .askLater(seconds(5),
                            [asked](const QOVAnswer& answer) {
                              QOV_Answer(*getCurrentTask(), asked, nullptr, answer ? 0 : 1);
                            }),
              QOVReason::kNone);
  };
  CQOV_MsgPackage request = kit_.message(7);

  EXPECT_TRUE(kit_.ask(worker_, request));
  kit_.fail(kOther, kRead, QOVReason::kNoReceiver);
  EXPECT_EQ(kit_.ask(worker_, request).result(), 1);
}

TEST_F(TestKitLater, TellsTheResultOfARefusal) {
  kit_.refuse(kOther, kRead, 9);
  handle([this](CQOV_MsgPackage&) { ask(); });

  EXPECT_EQ(reasons_, Reasons{QOVReason::kRefused});
  EXPECT_EQ(last_.result(), 9);
}

TEST_F(TestKitLater, GivesTheReasonOfTheTable) {
  for (const QOVReason reason : {QOVReason::kNoReceiver, QOVReason::kStopped, QOVReason::kNoMemory,
                                 QOVReason::kBusy, QOVReason::kInvalid}) {
    kit_.fail(kOther, kRead, reason);
    handle([this](CQOV_MsgPackage&) { EXPECT_EQ(ask(), QOVReason::kNone); });
    EXPECT_EQ(last_.reason(), reason) << QOV_TextOf(reason);
  }
  kit_.fail(kOther, kRead, QOVReason::kNoRoom);
  handle([this](CQOV_MsgPackage&) { EXPECT_EQ(ask(), QOVReason::kNoRoom); });
  EXPECT_EQ(reasons_.size(), 5U);
}

TEST_F(TestKitLater, KnowsNoAnswerToWhatIsNotItsModulesRequest) {
  kit_.answer(kOther, kRead);
  handle([this](CQOV_MsgPackage&) {
    QOVRequest request(worker_, kOther, kRead);
    request.message().head().smid_ = kOther;
    EXPECT_EQ(request.askLater(seconds(5), note()), QOVReason::kNone);
  });
  EXPECT_EQ(reasons_, Reasons{QOVReason::kInvalid});
}

TEST_F(TestKitLater, RunsThemInTheOrderOfTheRequests) {
  kit_.answer(kOther, 2);
  handle([this](CQOV_MsgPackage&) {
    ask(1);
    ask(2);
    ask(3);
  });
  EXPECT_EQ(reasons_, (Reasons{QOVReason::kNoReceiver, QOVReason::kNone, QOVReason::kNoReceiver}));
}

TEST_F(TestKitLater, TimesOutWhenTheClockIsThere) {
  kit_.fail(kOther, kRead, QOVReason::kTimedOut);
  handle([this](CQOV_MsgPackage&) { ask(kRead, seconds(5)); });
  kit_.advance(milliseconds(4999));
  EXPECT_TRUE(reasons_.empty());
  kit_.advance(milliseconds(1));
  EXPECT_EQ(reasons_, Reasons{QOVReason::kTimedOut});
  EXPECT_EQ(kit_.now(), seconds(5));
}

TEST_F(TestKitLater, TimesOutInTheOrderOfTheEnds) {
  kit_.fail(kOther, 1, QOVReason::kTimedOut);
  kit_.fail(kOther, 2, QOVReason::kTimedOut);
  std::vector<QOVTestKit::Duration> ends;
  const auto noteEnd = [&](const QOVAnswer&) { ends.push_back(kit_.now()); };
  handle([&](CQOV_MsgPackage&) {
    EXPECT_EQ(QOVRequest(worker_, kOther, 1).askLater(seconds(9), noteEnd), QOVReason::kNone);
    EXPECT_EQ(QOVRequest(worker_, kOther, 2).askLater(seconds(4), noteEnd), QOVReason::kNone);
  });
  kit_.advance(seconds(20));
  EXPECT_EQ(ends, (std::vector<QOVTestKit::Duration>{seconds(4), seconds(9)}));
}

TEST_F(TestKitLater, TakesTurnsWithTheTicks) {
  struct Sweep : QOVPeriodicTask {
    explicit Sweep(CQOV_TaskMgr* module) : QOVPeriodicTask(module) { every(seconds(10)); }
    void tick() override { act_(); }
    std::function<void()> act_;
  };
  kit_.answer(kOther, 1);
  kit_.fail(kOther, 2, QOVReason::kTimedOut);
  Sweep sweep(kit_.module());
  std::vector<std::pair<QOVTestKit::Duration, QOVReason>> ends;
  sweep.act_ = [&] {
    for (const unsigned int opc : {1U, 2U}) {
      ASSERT_EQ(QOVRequest(sweep, kOther, opc)
                    .askLater(seconds(3),
                              [&](const QOVAnswer& answer) {
                                ends.emplace_back(kit_.now(), answer.reason());
                              }),
                QOVReason::kNone);
    }
  };
  kit_.start(sweep);
  EXPECT_EQ(kit_.advance(seconds(20)), 2U);
  const std::vector<std::pair<QOVTestKit::Duration, QOVReason>> expected = {
      {seconds(10), QOVReason::kNone},
      {seconds(13), QOVReason::kTimedOut},
      {seconds(20), QOVReason::kNone}};
  EXPECT_EQ(ends, expected);
}

TEST_F(TestKitLater, RunsWhatWasAskedOutsideOfAHandlerWhenTheClockIsAsked) {
  kit_.answer(kOther, kRead);
  EXPECT_EQ(ask(), QOVReason::kNone);
  EXPECT_TRUE(reasons_.empty());
  kit_.advance(seconds(0));
  EXPECT_EQ(reasons_, Reasons{QOVReason::kNone});
}

TEST_F(TestKitLater, LetsAContinuationAskAgainAndWait) {
  kit_.answer(kOther, kRead);
  CQOV_Task* runsOn = nullptr;
  handle([&](CQOV_MsgPackage&) {
    EXPECT_EQ(QOVRequest(worker_, kOther, kRead)
                  .askLater(seconds(5),
                            [&](const QOVAnswer&) {
                              runsOn = getCurrentTask();
                              EXPECT_TRUE(QOVRequest(*runsOn, kOther, kRead).ask(seconds(5)));
                              ask();
                            }),
              QOVReason::kNone);
  });
  EXPECT_EQ(reasons_, Reasons{QOVReason::kNone});
  ASSERT_NE(runsOn, nullptr);
  EXPECT_EQ(runsOn->taskMgr(), kit_.module());
  EXPECT_NE(runsOn, &worker_);
  EXPECT_EQ(getCurrentTask(), nullptr);
}

TEST_F(TestKitLater, LetsThroughWhatAContinuationThrowsAndGoesOn) {
  kit_.answer(kOther, kRead);
  EXPECT_THROW(handle([this](CQOV_MsgPackage&) {
                 EXPECT_EQ(QOVRequest(worker_, kOther, kRead)
                               .askLater(seconds(5),
                                         [](const QOVAnswer&) { throw std::runtime_error("no"); }),
                           QOVReason::kNone);
                 ask();
               }),
               std::runtime_error);
  kit_.advance(seconds(0));
  EXPECT_EQ(reasons_, Reasons{QOVReason::kNone});
}

TEST_F(TestKitLater, SurvivesAFunctionOfTheTableThatThrows) {
  kit_.answer(kOther, kRead, [](const CQOV_MsgPackage&, CQOV_MsgPackage&) {
    throw std::runtime_error("not this time");
  });
  EXPECT_THROW(handle([this](CQOV_MsgPackage&) { ask(); }), std::runtime_error);
  kit_.advance(seconds(10));
  EXPECT_TRUE(reasons_.empty());
}

TEST_F(TestKitLater, BoundsWhatIsPendingAsAnAgentDoes) {
  kit_.fail(kOther, kRead, QOVReason::kTimedOut);
  for (std::size_t i = 0; i < QOVRequest::kMostLater; ++i) {
    ASSERT_EQ(ask(), QOVReason::kNone);
  }
  EXPECT_EQ(ask(), QOVReason::kNoRoom);
  kit_.advance(seconds(5));
  EXPECT_EQ(reasons_.size(), QOVRequest::kMostLater);
  EXPECT_EQ(ask(), QOVReason::kNone);
}

TEST_F(TestKitLater, TheStopEndsThemAndNothingIsSentAnyMore) {
  kit_.fail(kOther, kRead, QOVReason::kTimedOut);
  ask();
  QOVReason again = QOVReason::kNone;
  EXPECT_EQ(QOVRequest(worker_, kOther, kRead)
                .askLater(seconds(5), [&](const QOVAnswer&) { again = ask(); }),
            QOVReason::kNone);
  kit_.stop();
  EXPECT_EQ(reasons_, Reasons{QOVReason::kStopped});
  EXPECT_EQ(again, QOVReason::kStopped);
  EXPECT_EQ(QOVRequest(worker_, kOther, kRead).ask().reason(), QOVReason::kStopped);
  EXPECT_EQ(QOVRequest(worker_, kOther, kRead).tell(), QOVReason::kStopped);
  EXPECT_EQ(kit_.sent().size(), 2U);
}

TEST(TestKitLaterEnd, FreesWhatHasNotRunAndDoesNotRunIt) {
  const auto held = std::make_shared<int>(0);
  bool ran = false;
  {
    QOVTestKit kit(kModule);
    kit.fail(kOther, kRead, QOVReason::kTimedOut);
    Worker worker(kit.module());
    EXPECT_EQ(QOVRequest(worker, kOther, kRead)
                  .askLater(seconds(5), [held, &ran](const QOVAnswer&) { ran = true; }),
              QOVReason::kNone);
    EXPECT_EQ(held.use_count(), 2);
  }
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_FALSE(ran);
}
