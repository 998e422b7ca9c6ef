#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "tests/task/task_fixture.h"

// What send() leaves in errno.

namespace {

constexpr std::uint64_t kSilent = 1;
constexpr std::uint64_t kAnswered = 2;
constexpr std::uint64_t kStatic = 3;
constexpr std::uint8_t kNobody = kModule + 5;

class SendCauseTest : public TaskTest {
 protected:
  SendCauseTest()
      : module_(std::make_unique<TestModule>([this](CQOV_Task& task, CQOV_MsgPackage& pkg) {
          if (pkg.head().opc_ == kAnswered) {
            return answer(task, pkg);
          }
          arrived_.count();
          return 0;
        })) {}

  void SetUp() override { ASSERT_TRUE(module_->init()); }

  /// The errno of a request; 0 when it was answered.
  static int causeOf(CQOV_Task& task, std::unique_ptr<CQOV_MsgPackage> message,
                     const ACE_Time_Value& timeout) {
    errno = 0;
    return request(task, std::move(message), timeout) == 0 ? 0 : errno;
  }

  /// Runs `handler` in a static task of the module, once.
  void inStaticTask(const std::function<void(CQOV_Task&)>& handler) {
    task_ =
        std::make_unique<FunctionStaticTask>(module_.get(), std::list<unsigned long long>{kStatic},
                                             [this, handler](CQOV_Task& task, CQOV_MsgPackage&) {
                                               handler(task);
                                               done_.count();
                                               return 0;
                                             });
    ASSERT_EQ(0, module_->insertStaticScheduledTask(task_.get()));
    ASSERT_LT(0, module_->putq(makeBlock(makeMessage(3, kStatic)), nullptr));
  }

  Latch arrived_;
  Latch done_;
  // Outlives the module.
  std::unique_ptr<FunctionStaticTask> task_;
  std::unique_ptr<TestModule> module_;
};

}  // namespace

TEST_F(SendCauseTest, AnAnswerThatDoesNotComeInTime) {
  CQOV_Task task(module_.get());
  auto message = makeMessage(1, kSilent);
  message->head().sn_ = 0x2A;
  EXPECT_EQ(ETIMEDOUT, causeOf(task, std::move(message), kShort));
  const std::string line = "Worker(20) got no response in time: RPID=7,RMID=20,OPC=1,SN=0x2a!";
  EXPECT_EQ(1, log_.count(line));
  EXPECT_NE(std::string::npos, log_.text().find("[WARN]"));
}

TEST_F(SendCauseTest, AnAnswerThatComesInTimeLeavesNoSuchLine) {
  CQOV_Task task(module_.get());
  EXPECT_EQ(0, causeOf(task, makeMessage(1, kAnswered), kLong));
  EXPECT_EQ(0, log_.count("got no response in time"));
}

TEST_F(SendCauseTest, AReceiverThatDoesNotExist) {
  CQOV_Task task(module_.get());
  EXPECT_EQ(EHOSTUNREACH, causeOf(task, makeMessage(1, kSilent, kNobody), kLong));
  EXPECT_EQ(0, log_.count("got no response in time"));
}

TEST_F(SendCauseTest, AModuleThatStopsWhileItsRequestIsUnderWay) {
  std::unique_ptr<CQOV_Task> task = std::make_unique<CQOV_Task>(module_.get());
  std::thread sender(
      [&] { EXPECT_EQ(ECONNABORTED, causeOf(*task, makeMessage(1, kSilent), kNoLimit)); });
  ASSERT_TRUE(arrived_.waitFor());
  module_->stop();
  sender.join();
}

TEST_F(SendCauseTest, AModuleThatHasStopped) {
  module_->stop();
  CQOV_Task task(module_.get());
  EXPECT_EQ(ECONNABORTED, causeOf(task, makeMessage(1, kSilent), kLong));
  errno = 0;
  EXPECT_EQ(-1, task.send(makeMessage(3, kSilent).release(), nullptr, true));
  EXPECT_EQ(ECONNABORTED, errno);
}

TEST_F(SendCauseTest, AModuleWithoutRoom) {
  // Nothing drains a module that was not started.
  constexpr std::uint8_t kFull = kModule + 1;
  TestModule full(ignore, 1, kFull);
  CQOV_Task task(&full);
  ACE_Time_Value none;
  while (task.send(makeMessage(3, kSilent, kNobody, kFull).release(), &none, true) == 0) {
  }
  EXPECT_EQ(ENOBUFS, errno);
  EXPECT_EQ(ENOBUFS, causeOf(task, makeMessage(1, kSilent, kNobody, kFull), kNoLimit));
}

TEST_F(SendCauseTest, ArgumentsThatMakeNoSense) {
  CQOV_Task task(module_.get());
  CQOV_MsgPackage occupied;
  CQOV_MsgPackage* response = &occupied;
  errno = 0;
  EXPECT_EQ(-1, task.send(makeMessage(1, kSilent).release(), response, nullptr, true));
  EXPECT_EQ(EINVAL, errno);
  response = nullptr;
  errno = 0;
  EXPECT_EQ(-1, task.send(nullptr, response, nullptr, true));
  EXPECT_EQ(EINVAL, errno);
  errno = 0;
  EXPECT_EQ(-1, task.send(nullptr, nullptr, true));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(SendCauseTest, ARequestThatNobodyCanAnswer) {
  CQOV_Task task(module_.get());
  EXPECT_EQ(EINVAL, causeOf(task, makeMessage(3, kSilent), kNoLimit));
  EXPECT_EQ(EINVAL, causeOf(task, makeMessage(1, kSilent, kModule, kNobody), kNoLimit));
}

TEST_F(SendCauseTest, ARequestOfWhichOneLikeItWaitsAlready) {
  CQOV_Task first(module_.get());
  auto message = makeMessage(1, kSilent);
  auto same = makeMessage(1, kSilent);
  same->head().sn_ = message->head().sn_;
  std::thread sender(
      [&] { EXPECT_EQ(ECONNABORTED, causeOf(first, std::move(message), kNoLimit)); });
  EXPECT_TRUE(arrived_.waitFor());
  CQOV_Task second(module_.get());
  EXPECT_EQ(EINVAL, causeOf(second, std::move(same), kNoLimit));
  module_->stop();
  sender.join();
}

TEST_F(SendCauseTest, ASecondThreadInTheSendOfATaskIsRefusedAtOnce) {
  CQOV_Task task(module_.get());
  std::thread sender(
      [&] { EXPECT_EQ(ECONNABORTED, causeOf(task, makeMessage(1, kSilent), kNoLimit)); });
  EXPECT_TRUE(arrived_.waitFor());
  const auto kept = makeMessage(1, kAnswered);
  CQOV_MsgPackage* response = nullptr;
  errno = 0;
  EXPECT_EQ(-1, task.send(kept.get(), response, nullptr, false));
  EXPECT_EQ(EBUSY, errno);
  EXPECT_EQ(1, log_.count("[ERR]"));
  EXPECT_EQ(1, log_.count("another thread waits in send() of the same task!"));
  // The worker frees the first request after its handler has returned.
  while (CountedPackage::alive() > 1) {
    std::this_thread::yield();
  }
  EXPECT_EQ(EBUSY, causeOf(task, makeMessage(1, kAnswered), kNoLimit));
  EXPECT_EQ(1, CountedPackage::alive());
  // Whoever does not wait is in nobody's way.
  EXPECT_EQ(0, task.send(makeMessage(3, kSilent).release(), nullptr, true));
  module_->stop();
  sender.join();
}

TEST_F(SendCauseTest, ATaskMaySendAgainWhenItsSendHasEnded) {
  CQOV_Task task(module_.get());
  EXPECT_EQ(ETIMEDOUT, causeOf(task, makeMessage(1, kSilent), kShort));
  EXPECT_EQ(0, causeOf(task, makeMessage(1, kAnswered), kLong));
  EXPECT_EQ(EHOSTUNREACH, causeOf(task, makeMessage(1, kSilent, kNobody), kLong));
}

TEST_F(SendCauseTest, AStaticTaskIsToldOfItsTimeOut) {
  inStaticTask([](CQOV_Task& task) {
    EXPECT_EQ(ETIMEDOUT, causeOf(task, makeMessage(1, kSilent), kShort));
    EXPECT_EQ(0, causeOf(task, makeMessage(1, kAnswered), kLong));
  });
  ASSERT_TRUE(done_.waitFor());
  EXPECT_EQ(1, log_.count("Worker(20) got no response in time: RPID=7,RMID=20,OPC=1,SN="));
}

TEST_F(SendCauseTest, AStaticTaskIsToldOfTheStop) {
  inStaticTask([](CQOV_Task& task) {
    EXPECT_EQ(ECONNABORTED, causeOf(task, makeMessage(1, kSilent), kNoLimit));
  });
  ASSERT_TRUE(arrived_.waitFor());
  module_.reset();
  EXPECT_EQ(1, done_.counted());
}

TEST_F(SendCauseTest, AStaticTaskLearnsAtTheStopThatItsReceiverDidNotExist) {
  inStaticTask([](CQOV_Task& task) {
    EXPECT_EQ(EHOSTUNREACH, causeOf(task, makeMessage(1, kSilent, kNobody), kNoLimit));
  });
  ASSERT_TRUE(log_.waitFor("Pid 25 is invalid!"));
  module_.reset();
  EXPECT_EQ(1, done_.counted());
}
