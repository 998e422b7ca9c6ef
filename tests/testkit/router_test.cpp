#include <gtest/gtest.h>
#include <qovpub/qov_testkit.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>

namespace {

using std::chrono::seconds;

constexpr unsigned int kModule = 42;
constexpr std::uint8_t kOther = 43;
constexpr std::uint64_t kRead = 1;

class Worker : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;
  int handleMessage(CQOV_MsgPackage&) override { return 0; }
};

class StaticWorker : public CQOV_StaticSchecheduledTask {
 public:
  using CQOV_StaticSchecheduledTask::CQOV_StaticSchecheduledTask;
  int handleMessage(CQOV_MsgPackage&) override { return 0; }
  void getOpcList(std::list<unsigned long long>&) override {}
};

template <class Task>
class TestKitRouter : public ::testing::Test {
 protected:
  QOVAnswer ask(std::uint8_t module = kOther, std::uint64_t opc = kRead) {
    return QOVRequest(task_, module, opc).ask(seconds(5));
  }

  QOVTestKit kit_{kModule};
  Task task_{kit_.module()};
};

using Tasks = ::testing::Types<Worker, StaticWorker>;
TYPED_TEST_SUITE(TestKitRouter, Tasks, );

TYPED_TEST(TestKitRouter, AnswersWithWhatTheTableFillsIn) {
  this->kit_.answer(kOther, kRead, [](const CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
    answer.addRecord(request.head().opc_).addUnsigned(1, 17);
  });

  const QOVAnswer answer = this->ask();

  ASSERT_TRUE(answer) << answer.text();
  EXPECT_EQ((*answer)[0].getUnsigned(1), 17U);
  EXPECT_EQ(this->kit_.sent().size(), 1U);
}

TYPED_TEST(TestKitRouter, AnswersEveryRequestAnew) {
  this->kit_.answer(kOther, kRead);

  EXPECT_TRUE(this->ask());
  EXPECT_TRUE(this->ask());
  EXPECT_EQ(this->kit_.sent().size(), 2U);
}

TYPED_TEST(TestKitRouter, KeepsWhatAFunctionOfTheTableKeeps) {
  this->kit_.answer(kOther, kRead,
                    [calls = 0U](const CQOV_MsgPackage&, CQOV_MsgPackage& answer) mutable {
                      answer.addRecord(kRead).addUnsigned(1, ++calls);
                    });

  this->ask();
  EXPECT_EQ((*this->ask())[0].getUnsigned(1), 2U);
}

TYPED_TEST(TestKitRouter, LetsAFunctionOfTheTableChangeTheTable) {
  this->kit_.answer(kOther, kRead, [this](const CQOV_MsgPackage&, CQOV_MsgPackage&) {
    this->kit_.refuse(kOther, kRead, 3);
  });

  EXPECT_TRUE(this->ask());
  EXPECT_EQ(this->ask().result(), 3);
}

TYPED_TEST(TestKitRouter, RefusesWithTheResult) {
  this->kit_.refuse(kOther, kRead, 9);

  const QOVAnswer answer = this->ask();

  EXPECT_EQ(answer.reason(), QOVReason::kRefused);
  EXPECT_EQ(answer.result(), 9);
}

TYPED_TEST(TestKitRouter, GivesTheReasonOfTheTable) {
  for (const QOVReason reason :
       {QOVReason::kTimedOut, QOVReason::kNoReceiver, QOVReason::kNoRoom, QOVReason::kStopped,
        QOVReason::kNoMemory, QOVReason::kBusy, QOVReason::kInvalid}) {
    this->kit_.fail(kOther, kRead, reason);
    EXPECT_EQ(this->ask().reason(), reason) << QOV_TextOf(reason);
  }
}

TYPED_TEST(TestKitRouter, KnowsNobodyButTheTable) {
  this->kit_.answer(kOther, kRead);

  EXPECT_EQ(this->ask(kOther, kRead + 1).reason(), QOVReason::kNoReceiver);
  EXPECT_EQ(this->ask(kOther + 1, kRead).reason(), QOVReason::kNoReceiver);
}

TYPED_TEST(TestKitRouter, LeavesATimeOutBehindForNoLaterRequest) {
  this->kit_.fail(kOther, kRead, QOVReason::kTimedOut);
  EXPECT_FALSE(this->ask());
  this->kit_.answer(kOther, kRead);
  EXPECT_TRUE(this->ask());
}

TYPED_TEST(TestKitRouter, EndsARequestWithoutATimeOutAsTheStopDoes) {
  this->kit_.fail(kOther, kRead, QOVReason::kTimedOut);

  EXPECT_EQ(QOVRequest(this->task_, kOther, kRead).ask().reason(), QOVReason::kStopped);
}

TYPED_TEST(TestKitRouter, MovesTheClockForwardsByATimeOutHoweverLong) {
  this->kit_.fail(kOther, kRead, QOVReason::kTimedOut);
  const auto before = this->kit_.now();

  QOVRequest request(this->task_, kOther, kRead);
  EXPECT_EQ(request.ask(QOVRequest::Duration::max()).reason(), QOVReason::kTimedOut);
  EXPECT_GT(this->kit_.now(), before + std::chrono::hours(24));
}

TYPED_TEST(TestKitRouter, TakesNoNoticeWithoutRoom) {
  this->kit_.fail(kOther, kRead, QOVReason::kNoRoom);

  EXPECT_EQ(QOVRequest(this->task_, kOther, kRead).tell(), QOVReason::kNoRoom);
  EXPECT_TRUE(this->kit_.sent().empty());
  EXPECT_EQ(QOVRequest(this->task_, kOther, kRead + 1).tell(), QOVReason::kNone);
  EXPECT_EQ(this->kit_.sent().size(), 1U);
}

TYPED_TEST(TestKitRouter, SurvivesAFunctionThatThrows) {
  this->kit_.answer(kOther, kRead, [](const CQOV_MsgPackage&, CQOV_MsgPackage&) {
    throw std::runtime_error("not this time");
  });
  EXPECT_THROW(this->ask(), std::runtime_error);
  this->kit_.answer(kOther, kRead);
  EXPECT_TRUE(this->ask());
}

TYPED_TEST(TestKitRouter, NeverRunsFull) {
  constexpr int kMany = 5000;
  for (int i = 0; i < kMany; ++i) {
    ASSERT_EQ(QOVRequest(this->task_, kOther, kRead).tell(), QOVReason::kNone);
  }
  EXPECT_EQ(this->kit_.sent().size(), static_cast<std::size_t>(kMany));
}

TYPED_TEST(TestKitRouter, RefusesToWaitForTheAnswerToWhatIsNotItsModulesRequest) {
  this->kit_.answer(kOther, kRead);
  auto request = std::make_unique<CQOV_MsgPackage>(this->kit_.message(kRead));
  CQOV_MsgPackage* response = nullptr;

  EXPECT_EQ(this->task_.send(request.release(), response, nullptr, true), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(response, nullptr);
}

}  // namespace
