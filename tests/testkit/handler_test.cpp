#include <gtest/gtest.h>
#include <qovpub/qov_handlers.h>
#include <qovpub/qov_log.h>
#include <qovpub/qov_om_message_package.h>
#include <qovpub/qov_testkit.h>

#include <stdexcept>
#include <utility>

namespace {

constexpr unsigned int kModule = 42;
constexpr std::uint8_t kOther = 43;
constexpr std::uint64_t kGreet = 1;
constexpr std::uint64_t kTell = 2;
constexpr std::uint64_t kThrow = 3;
constexpr std::uint16_t kName = 1;

class Worker : public QOVHandlers<Worker> {
 public:
  explicit Worker(CQOV_TaskMgr* module)
      : QOVHandlers(
            module,
            {{kGreet, &Worker::greet}, {kTell, &Worker::tellTwice}, {kThrow, &Worker::fail}}) {}

  CQOV_Task* current_ = nullptr;

 private:
  int greet(CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
    current_ = getCurrentTask();
    if (request.count() == 0) {
      return 5;
    }
    answer.addRecord(kGreet).addString(kName, "hello, " + std::string(request[0].getString(kName)));
    return 0;
  }

  int tellTwice(CQOV_MsgPackage&) {
    QOVRequest(*this, kOther, 1).tell();
    QOVRequest(*this, kOther, 2).tell(QOVMsgHead::kEvent);
    QOV_GUARD(guard, kModule);
    QOV_INFO(guard, 7, "told %d times", 2);
    QOV_DEBUG(guard, 8, "not of interest%s", "");
    return 3;
  }

  int fail(CQOV_MsgPackage&) { throw std::runtime_error("no more"); }
};

/// Answers with the addresses as they are.
class OwnModulesWorker : public CQOV_CommonTaskEx {
 public:
  using CQOV_CommonTaskEx::CQOV_CommonTaskEx;
  int handleRequest(CQOV_MsgPackage&, CQOV_MsgPackage*&) override { return 0; }
};

class AnswersOnce : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;
  int handleMessage(CQOV_MsgPackage& request) override {
    return std::exchange(done_, true) ? 0 : QOV_Answer(*this, request.head(), nullptr);
  }

 private:
  bool done_ = false;
};

class StaticWorker : public QOVStaticHandlers<StaticWorker> {
 public:
  explicit StaticWorker(CQOV_TaskMgr* module)
      : QOVStaticHandlers(module, {{kGreet, &StaticWorker::greet}}) {}

 private:
  int greet(CQOV_MsgPackage&, CQOV_MsgPackage& answer) {
    answer.addRecord(9);
    return 0;
  }
};

TEST(TestKitHandlers, GiveTheAnswerToTheRequester) {
  QOVTestKit kit(kModule);
  Worker worker(kit.module());
  CQOV_MsgPackage request = kit.message(kGreet);
  request.addRecord(kGreet).addString(kName, "Ada");

  const QOVAnswer answer = kit.ask(worker, request);

  ASSERT_TRUE(answer) << answer.text();
  EXPECT_EQ((*answer)[0].getString(kName), "hello, Ada");
  EXPECT_TRUE(kit.sent().empty());
}

TEST(TestKitHandlers, GiveTheResultOfARefusal) {
  QOVTestKit kit(kModule);
  Worker worker(kit.module());
  CQOV_MsgPackage request = kit.message(kGreet);

  const QOVAnswer answer = kit.ask(worker, request);

  EXPECT_EQ(answer.reason(), QOVReason::kRefused);
  EXPECT_EQ(answer.result(), 5);
}

TEST(TestKitHandlers, SeeTheirTaskAsTheCurrentOneAndNobodyElseDoes) {
  QOVTestKit kit(kModule);
  Worker worker(kit.module());
  CQOV_MsgPackage request = kit.message(kGreet);

  kit.handle(worker, request);

  EXPECT_EQ(worker.current_, &worker);
  EXPECT_EQ(getCurrentTask(), nullptr);
}

TEST(TestKitHandlers, LeaveWhatTheySendInItsOrder) {
  QOVTestKit kit(kModule);
  Worker worker(kit.module());
  CQOV_MsgPackage notice = kit.message(kTell, QOVMsgHead::kNotice);

  EXPECT_EQ(kit.handle(worker, notice), 3);

  const QOVTestKit::Sent sent = kit.takeSent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[0]->head().opc_, 1U);
  EXPECT_EQ(sent[0]->head().type_, QOVMsgHead::kNotice);
  EXPECT_EQ(sent[0]->head().rmid_, kOther);
  EXPECT_EQ(sent[0]->head().smid_, kModule);
  EXPECT_EQ(sent[1]->head().opc_, 2U);
  EXPECT_EQ(sent[1]->head().type_, QOVMsgHead::kEvent);
  EXPECT_TRUE(kit.sent().empty());
}

TEST(TestKitHandlers, LogIntoTheKitFromInfoUp) {
  QOVTestKit kit(kModule);
  Worker worker(kit.module());
  CQOV_MsgPackage notice = kit.message(kTell, QOVMsgHead::kNotice);

  kit.handle(worker, notice);

  EXPECT_NE(kit.process().log().find("told 2 times"), std::string::npos) << kit.process().log();
  EXPECT_EQ(kit.process().log().find("not of interest"), std::string::npos);
}

TEST(TestKitHandlers, ThrowWhatTheyThrow) {
  QOVTestKit kit(kModule);
  Worker worker(kit.module());
  CQOV_MsgPackage request = kit.message(kThrow);

  EXPECT_THROW(kit.handle(worker, request), std::runtime_error);
  EXPECT_EQ(getCurrentTask(), nullptr);
}

TEST(TestKitHandlers, OfAnAnswerThatDoesNotFindTheWayBackGiveNone) {
  QOVTestKit kit(kModule);
  OwnModulesWorker worker(kit.module());
  CQOV_MsgPackage fromElsewhere = kit.message(kGreet);
  CQOV_MsgPackage fromWithin = kit.message(kGreet, QOVMsgHead::kRequest, kModule);

  EXPECT_EQ(kit.ask(worker, fromElsewhere).reason(), QOVReason::kTimedOut);
  EXPECT_EQ(kit.sent().size(), 1U);
  EXPECT_TRUE(kit.ask(worker, fromWithin));
}

TEST(TestKitHandlers, AnswerNoRequestWithAnEarlierAnswer) {
  QOVTestKit kit(kModule);
  AnswersOnce worker(kit.module());
  CQOV_MsgPackage request = kit.message(kGreet);

  kit.handle(worker, request);
  EXPECT_EQ(kit.ask(worker, request).reason(), QOVReason::kTimedOut);
  EXPECT_EQ(kit.sent().size(), 1U);
}

TEST(TestKitHandlers, MayBeThoseOfAStaticScheduledTask) {
  QOVTestKit kit(kModule);
  StaticWorker worker(kit.module());
  CQOV_MsgPackage request = kit.message(kGreet);

  const QOVAnswer answer = kit.ask(worker, request);

  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)[0].cmd(), 9U);
}

TEST(TestKitHandlers, GetMessagesThatAreThereAlready) {
  QOVTestKit kit(kModule);
  StaticWorker worker(kit.module());
  CQOV_OM_MsgPackage request(std::make_unique<CT7QPackageV3>().release());
  kit.address(request, kGreet);

  EXPECT_TRUE(kit.ask(worker, request));
  EXPECT_NE(request.get(), nullptr);
}

/// A module that its workers know by its own class.
class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(kModule, 2, "own") {}
  CQOV_Task* createTask() override { return std::make_unique<Worker>(this).release(); }
};

TEST(TestKitHandlers, MayBelongToAModuleOfTheAuthorsOwn) {
  QOVTestProcess process;
  Module module;
  QOVTestKit kit(process, module);
  const std::unique_ptr<CQOV_Task> worker(module.createTask());
  CQOV_MsgPackage request = kit.message(kGreet);
  request.addRecord(kGreet).addString(kName, "Ada");

  EXPECT_TRUE(kit.ask(dynamic_cast<Worker&>(*worker), request));
}

}  // namespace
