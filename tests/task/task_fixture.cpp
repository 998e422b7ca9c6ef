#include "tests/task/task_fixture.h"

#include <ace/Log_Msg.h>

#include <cstdlib>
#include <thread>
#include <utility>

#include "tests/support/this_process.h"

namespace {

/// The configuration that every test process needs: the process id.
class ProcessConfiguration : public ::testing::Environment {
 public:
  void SetUp() override { qov::test::thisProcess(); }
};

const ::testing::Environment* const kConfiguration =
    ::testing::AddGlobalTestEnvironment(new ProcessConfiguration);

constexpr u_long kInfoAndAbove = LM_INFO | LM_NOTICE | LM_WARNING | LM_ERROR | LM_CRITICAL;

}  // namespace

const AgentRoot& agentRoot() {
  return qov::test::thisProcess();
}

std::atomic<int> CountedPackage::alive_{0};
std::atomic<int> FunctionWorker::alive_{0};

std::unique_ptr<CQOV_MsgPackage> makeMessage(int type, std::uint64_t opc, std::uint8_t receiver,
                                             std::uint8_t sender) {
  auto message = std::make_unique<CountedPackage>();
  QOVMsgHead& head = message->head();
  head.type_ = static_cast<std::uint8_t>(type);
  head.spid_ = kPid;
  head.smid_ = sender;
  head.rpid_ = kPid;
  head.rmid_ = receiver;
  head.opc_ = opc;
  return message;
}

ACE_Message_Block* makeBlock(std::unique_ptr<CQOV_MsgPackage> package) {
  return qov::makePointerBlock(package.release());
}

FunctionWorker::FunctionWorker(CQOV_TaskMgr* mgr, Handler handler)
    : CQOV_CommonTask(mgr), handler_(std::move(handler)) {
  ++alive_;
}

FunctionWorker::~FunctionWorker() {
  --alive_;
}

TestModule::TestModule(FunctionWorker::Handler handler, unsigned int pool, unsigned int id,
                       const char* name)
    : CQOV_TaskMgr(id, pool, name), handler_(std::move(handler)) {}

PatientModule::PatientModule(unsigned int id)
    : TestModule(
          [this](CQOV_Task&, CQOV_MsgPackage&) {
            EXPECT_TRUE(release_.waitFor());
            handled_.count();
            return 0;
          },
          1, id) {}

PatientModule::~PatientModule() {
  release_.count();
  stop();
}

FunctionStaticTask::FunctionStaticTask(CQOV_TaskMgr* mgr, std::list<unsigned long long> opcs,
                                       FunctionWorker::Handler handler)
    : CQOV_StaticSchecheduledTask(mgr), opcs_(std::move(opcs)), handler_(std::move(handler)) {}

int answer(CQOV_Task& task, CQOV_MsgPackage& request, std::uint8_t mst) {
  return task.send(CreateQovRspPackage(request, mst).release(), nullptr, true);
}

int ignore(CQOV_Task&, CQOV_MsgPackage&) {
  return 0;
}

int request(CQOV_Task& task, std::unique_ptr<CQOV_MsgPackage> message, ACE_Time_Value timeout,
            std::unique_ptr<CQOV_MsgPackage>* response) {
  CQOV_MsgPackage* rsp = nullptr;
  const int result = task.send(message.release(), rsp, &timeout, true);
  std::unique_ptr<CQOV_MsgPackage> owned(rsp);
  if (response != nullptr) {
    *response = std::move(owned);
  }
  return result;
}

void endWhileMessagesWait(StderrCapture& log, int count,
                          const std::function<std::unique_ptr<CQOV_MsgPackage>()>& makeOne) {
  Latch inHandler;
  Latch release;
  auto module = std::make_unique<TestModule>(
      [&](CQOV_Task&, CQOV_MsgPackage&) {
        inHandler.count();
        EXPECT_TRUE(release.waitFor());
        return 0;
      },
      1, kModule + 1);
  ASSERT_TRUE(module->init());
  for (int i = 0; i < count; ++i) {
    ASSERT_LT(0, module->putq(makeBlock(makeOne()), nullptr));
  }
  ASSERT_TRUE(inHandler.waitFor());
  std::thread releaser([&] {
    EXPECT_TRUE(log.waitFor("Manager thread(21) exit!"));
    release.count();
  });
  module.reset();
  releaser.join();
}

namespace {

ACE_Message_Block* makeBlockForElsewhere(CQOV_Task& task, ACE_Time_Value timeout) {
  auto message = makeMessage(1, 1);
  message->head().rpid_ = kOtherPid;
  ACE_Message_Block* const block = makeBlock(std::move(message));
  block->cont(qov::makePointerBlock(new TimeoutDesc{&task, timeout, -1}));
  return block;
}

}  // namespace

RequestElsewhere::RequestElsewhere(CQOV_TaskMgr& module, CQOV_Task& task, ACE_Time_Value timeout)
    : task_(task), block_(makeBlockForElsewhere(task, timeout)) {
  EXPECT_LT(0, module.putq(block_, nullptr));
}

RequestElsewhere::~RequestElsewhere() {
  qov::releaseWithPackage(block_);
}

std::unique_ptr<CQOV_MsgPackage> RequestElsewhere::makeResponse() const {
  const QOVMsgHead& head = qov::packageOf(*block_)->head();
  auto response = makeMessage(2, head.opc_, head.smid_, head.rmid_);
  response->head().spid_ = head.rpid_;
  response->head().sn_ = head.sn_;
  return response;
}

bool RequestElsewhere::waitForResponse() {
  ACE_Message_Block* response = nullptr;
  task_.getMsg(response);
  const bool came = response != nullptr;
  qov::releaseWithPackage(response);
  return came;
}

TaskTest::TaskTest()
    : packagesBefore_(CountedPackage::alive()), workersBefore_(FunctionWorker::alive()) {
  ACE_Log_Msg::instance()->priority_mask(kInfoAndAbove, ACE_Log_Msg::PROCESS);
}

TaskTest::~TaskTest() {
  EXPECT_EQ(packagesBefore_, CountedPackage::alive());
  EXPECT_EQ(workersBefore_, FunctionWorker::alive());
}
