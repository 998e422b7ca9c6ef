#include <gtest/gtest.h>
#include <qovpub/qov_om_message_package.h>
#include <qovpub/qov_request.h>

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "tests/support/process_end.h"
#include "tests/task/task_fixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;

constexpr std::uint64_t kSilent = 99;
constexpr std::uint8_t kNobody = 200;

/// The module answers with its request's operation code as the result, or not at all.
class RequestTest : public TaskTest {
 protected:
  RequestTest()
      : module_([this](CQOV_Task& task, CQOV_MsgPackage& pkg) {
          const QOVMsgHead head = pkg.head();
          {
            const std::lock_guard<std::mutex> lock(mutex_);
            received_ = head;
            cells_ = pkg.count() > 0 ? pkg[0].getUnsigned(1) : 0;
          }
          came_.count();
          return head.type_ != QOVMsgHead::kRequest || head.opc_ == kSilent
                     ? 0
                     : answer(task, pkg, static_cast<std::uint8_t>(head.opc_));
        }),
        task_(&module_) {}

  QOVMsgHead received() {
    EXPECT_TRUE(came_.waitFor());
    const std::lock_guard<std::mutex> lock(mutex_);
    return *received_;
  }

  std::mutex mutex_;
  // Guarded by mutex_.
  std::optional<QOVMsgHead> received_;
  std::uint64_t cells_ = 0;

  Latch came_;
  TestModule module_;
  CQOV_Task task_;
};

}  // namespace

TEST_F(RequestTest, FillsInWhoAsksWhomForWhat) {
  ASSERT_TRUE(module_.init());
  QOVRequest request(task_, kModule, 0);
  request.addRecord(1).addUnsigned(1, 42);
  const QOVAnswer answer = request.ask(minutes(1));
  ASSERT_TRUE(answer);
  EXPECT_EQ(QOVReason::kNone, answer.reason());
  const QOVMsgHead head = received();
  EXPECT_EQ(1, head.type_);
  EXPECT_EQ(0U, head.opc_);
  EXPECT_EQ(kPid, head.spid_);
  EXPECT_EQ(kModule, head.smid_);
  EXPECT_EQ(kPid, head.rpid_);
  EXPECT_EQ(kModule, head.rmid_);
  EXPECT_EQ(42U, cells_);
}

TEST_F(RequestTest, GivesTheAnswerToWhoTakesIt) {
  ASSERT_TRUE(module_.init());
  QOVAnswer answer = QOVRequest(task_, kModule, 0).ask();
  ASSERT_TRUE(answer);
  EXPECT_EQ(2, answer->head().type_);
  const std::unique_ptr<CQOV_MsgPackage> mine = answer.take();
  EXPECT_EQ(2, mine->head().type_);
  EXPECT_FALSE(answer);
}

TEST_F(RequestTest, TellsTheResultWithWhichTheReceiverRefuses) {
  ASSERT_TRUE(module_.init());
  const QOVAnswer answer = QOVRequest(task_, kModule, 255).ask(minutes(1));
  EXPECT_FALSE(answer);
  EXPECT_EQ(QOVReason::kRefused, answer.reason());
  EXPECT_EQ(255, answer.result());
}

TEST_F(RequestTest, TimesOut) {
  ASSERT_TRUE(module_.init());
  const QOVAnswer answer = QOVRequest(task_, kModule, kSilent).ask(milliseconds(150));
  EXPECT_EQ(QOVReason::kTimedOut, answer.reason());
  EXPECT_EQ(0, answer.result());
}

TEST_F(RequestTest, ATimeOutOfNothingSendsNothing) {
  ASSERT_TRUE(module_.init());
  EXPECT_EQ(QOVReason::kTimedOut, QOVRequest(task_, kModule, 0).ask(milliseconds(0)).reason());
  EXPECT_EQ(QOVReason::kTimedOut, QOVRequest(task_, kModule, 0).ask(milliseconds(-1)).reason());
  ASSERT_TRUE(QOVRequest(task_, kModule, 0).ask(minutes(1)));
  EXPECT_EQ(1, came_.counted());
}

TEST_F(RequestTest, AModuleThatIsNotThereIsToldFromOneThatDoesNotAnswer) {
  ASSERT_TRUE(module_.init());
  EXPECT_EQ(QOVReason::kNoReceiver, QOVRequest(task_, kNobody, 0).ask(minutes(1)).reason());
}

TEST_F(RequestTest, IsRefusedByAModuleThatHasStopped) {
  ASSERT_TRUE(module_.init());
  module_.stop();
  EXPECT_EQ(QOVReason::kStopped, QOVRequest(task_, kModule, 0).ask(minutes(1)).reason());
  EXPECT_EQ(QOVReason::kStopped, QOVRequest(task_, kModule, 0).tell());
}

TEST_F(RequestTest, TheStopEndsAWaitWithoutALimit) {
  ASSERT_TRUE(module_.init());
  std::thread stopper([this] {
    EXPECT_TRUE(came_.waitFor());
    module_.stop();
  });
  EXPECT_EQ(QOVReason::kStopped, QOVRequest(task_, kModule, kSilent).ask().reason());
  stopper.join();
}

TEST_F(RequestTest, IsSentOnce) {
  ASSERT_TRUE(module_.init());
  QOVRequest request(task_, kModule, 0);
  ASSERT_TRUE(request.ask(minutes(1)));
  EXPECT_EQ(QOVReason::kInvalid, request.ask(minutes(1)).reason());
  EXPECT_EQ(QOVReason::kInvalid, request.tell());
  EXPECT_EQ(1, came_.counted());
}

TEST_F(RequestTest, ASecondThreadOfTheTaskIsTurnedAway) {
  ASSERT_TRUE(module_.init());
  std::thread first([this] {
    EXPECT_EQ(QOVReason::kStopped, QOVRequest(task_, kModule, kSilent).ask().reason());
  });
  ASSERT_TRUE(came_.waitFor());
  EXPECT_EQ(QOVReason::kBusy, QOVRequest(task_, kModule, 0).ask(minutes(1)).reason());
  module_.stop();
  first.join();
}

TEST_F(RequestTest, TellsWithoutWaitingForAnAnswer) {
  ASSERT_TRUE(module_.init());
  EXPECT_EQ(QOVReason::kNone, QOVRequest(task_, kModule, kSilent).tell(QOVMsgHead::kEvent));
  EXPECT_EQ(4, received().type_);
  EXPECT_EQ(QOVReason::kNone, QOVRequest(task_, kModule, kSilent).tell());
  ASSERT_TRUE(came_.waitFor(2));
  EXPECT_EQ(3, received().type_);
}

TEST_F(RequestTest, AFullModuleRefusesANoticeThatDoesNotWait) {
  Latch busy;
  Latch release;
  TestModule full(
      [&](CQOV_Task&, CQOV_MsgPackage&) {
        busy.count();
        EXPECT_TRUE(release.waitFor());
        return 0;
      },
      1, kModule + 1);
  ASSERT_TRUE(full.init());
  CQOV_Task task(&full);
  ASSERT_EQ(QOVReason::kNone, QOVRequest(task, kModule + 1, 0).tell());
  ASSERT_TRUE(busy.waitFor());
  QOVReason reason = QOVReason::kNone;
  while (reason == QOVReason::kNone) {
    reason = QOVRequest(task, kModule + 1, 0).tell(milliseconds(0));
  }
  EXPECT_EQ(QOVReason::kNoRoom, reason);
  release.count();
  EXPECT_TRUE(qov::test::waitUntil(
      [&] { return QOVRequest(task, kModule + 1, 0).tell(milliseconds(0)) == QOVReason::kNone; }));
}

TEST_F(RequestTest, SendsAMessageThatIsThereAlready) {
  ASSERT_TRUE(module_.init());
  auto message = std::make_unique<CQOV_OM_MsgPackage>(new CT7QPackageV3);
  const std::uint32_t serial = message->head().sn_;
  ASSERT_TRUE(QOVRequest(task_, kModule, 0, std::move(message)).ask(minutes(1)));
  const QOVMsgHead head = received();
  EXPECT_EQ(serial, head.sn_);
  EXPECT_EQ(QOVMsgHead::kFlagOm, head.flags_);
}

TEST(Request, EveryReasonHasATextOfItsOwn) {
  std::set<std::string> texts;
  for (int reason = 0; reason <= static_cast<int>(QOVReason::kInvalid); ++reason) {
    texts.insert(QOV_TextOf(static_cast<QOVReason>(reason)));
  }
  EXPECT_EQ(static_cast<std::size_t>(QOVReason::kInvalid) + 1, texts.size());
  EXPECT_EQ(0U, texts.count("unknown"));
  EXPECT_STREQ("no answer came in time", QOVAnswer(QOVReason::kTimedOut).text());
}
