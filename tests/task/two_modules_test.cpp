#include <gtest/gtest.h>
#include <qovpub/qov_om_message_package.h>

#include <cerrno>
#include <optional>
#include <thread>
#include <vector>

#include "tests/support/answering_modules.h"
#include "tests/support/process_end.h"
#include "tests/task/task_fixture.h"

namespace {

/// Requests of one loaded module to another.
class TwoModulesTest : public TaskTest {
 protected:
  TwoModulesTest() : modules_(agentRoot()) {}
  ~TwoModulesTest() override { agentRoot().removeModules(); }

  static std::unique_ptr<CQOV_MsgPackage> makeRequest() {
    return makeMessage(1, 5, AnsweringModules::kSecond, AnsweringModules::kFirst);
  }

  /// Until the second module takes no more. Its static task does nothing with it until release_.
  void fillTheSecond() {
    constexpr std::uint64_t kHeld = 6;
    busy_.emplace(modules_.second(), std::list<unsigned long long>{kHeld},
                  [this](CQOV_Task&, CQOV_MsgPackage&) {
                    EXPECT_TRUE(release_.waitFor());
                    return 0;
                  });
    ASSERT_EQ(0, modules_.second()->insertStaticScheduledTask(&*busy_));
    // A block counts twice for the moment in which it changes hands.
    for (int refusals = 0; refusals < 200; std::this_thread::yield()) {
      ACE_Time_Value refuseAtOnce(1);
      ACE_Message_Block* const block = makeBlock(makeMessage(3, kHeld, AnsweringModules::kSecond));
      const bool taken = modules_.second()->putq(block, &refuseAtOnce) != -1;
      refusals = taken ? 0 : refusals + 1;
      if (!taken) {
        qov::releaseWithPackage(block);
      }
    }
  }

  Latch release_;
  // Outlives its module.
  std::optional<FunctionStaticTask> busy_;
  AnsweringModules modules_;
};

}  // namespace

TEST_F(TwoModulesTest, ARequestComesBackFromWhereItWent) {
  CQOV_Task task(modules_.first());
  auto message = makeRequest();
  const std::uint32_t sn = message->head().sn_;
  std::unique_ptr<CQOV_MsgPackage> response;
  ASSERT_EQ(0, request(task, std::move(message), kLong, &response));
  const QOVMsgHead& head = response->head();
  EXPECT_EQ(2, head.type_);
  EXPECT_EQ(5U, head.opc_);
  EXPECT_EQ(sn, head.sn_);
  EXPECT_EQ(kPid, head.spid_);
  EXPECT_EQ(AnsweringModules::kSecond, head.smid_);
  EXPECT_EQ(kPid, head.rpid_);
  EXPECT_EQ(AnsweringModules::kFirst, head.rmid_);
}

TEST_F(TwoModulesTest, ARequestToAModuleWithoutRoomIsRefusedUntilThereIsSome) {
  CQOV_Task task(modules_.first());
  fillTheSecond();
  errno = 0;
  EXPECT_EQ(-1, request(task, makeRequest(), kNoLimit));
  EXPECT_EQ(ENOBUFS, errno);
  EXPECT_EQ(1, log_.count("Failed to send message to pid 31."));
  release_.count();
  EXPECT_TRUE(qov::test::waitUntil([&] { return request(task, makeRequest(), kLong) == 0; }));
}

TEST_F(TwoModulesTest, AnOmRequestArrivesWithItsInnerPackage) {
  CQOV_Task task(modules_.first());
  auto* const inner = new CT7QPackageV3;
  inner->head().ser_ = 42;
  inner->addRecord(1).addString(1, "a text of more than nineteen bytes");
  auto message = std::make_unique<CQOV_OM_MsgPackage>(inner);
  message->head() = makeRequest()->head();
  message->head().flags_ |= QOVMsgHead::kFlagOm;
  std::unique_ptr<CQOV_MsgPackage> response;
  ASSERT_EQ(0, request(task, std::move(message), kLong, &response));
  const auto* const om = dynamic_cast<CQOV_OM_MsgPackage*>(response.get());
  ASSERT_NE(nullptr, om);
  // It went there and came back without being copied.
  ASSERT_EQ(inner, om->get());
  EXPECT_EQ(42U, inner->head().ser_);
  EXPECT_EQ("a text of more than nineteen bytes", (*inner)[0].getString(1));
}

TEST_F(TwoModulesTest, ManyTasksAskAtOnce) {
  constexpr int kTasks = 8;
  constexpr int kEach = 200;
  std::vector<std::thread> threads;
  for (int i = 0; i < kTasks; ++i) {
    threads.emplace_back([this] {
      CQOV_Task task(modules_.first());
      for (int n = 0; n < kEach; ++n) {
        ASSERT_EQ(0, request(task, makeRequest(), kLong));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(0, log_.count("Failed to"));
}

TEST_F(TwoModulesTest, AnAsynchronousMessageReachesTheOtherModule) {
  CQOV_Task task(modules_.first());
  ASSERT_EQ(
      0, task.send(makeMessage(3, 5, AnsweringModules::kSecond, AnsweringModules::kFirst).release(),
                   nullptr, true));
  // Its worker answers even that; the first module has nobody who waits for the answer.
  EXPECT_TRUE(log_.waitFor("Failed to handle RSP message: SPID=7,SMID=31,OPC=5,SN="));
}
