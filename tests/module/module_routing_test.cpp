#include <ace/Message_Block.h>
#include <qovpub/qov_om_message_package.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/module/libs/opcodes.h"
#include "tests/module/module_fixture.h"
#include "tests/module/package_blocks.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace qov::test {
namespace {

constexpr u_short kAlpha = 3;
constexpr u_short kBeta = 5;

class ModuleRouting : public ModuleTest {
 protected:
  /// Sends an asynchronous message to the module; `rmid` is its address there.
  bool sends(u_short gid, unsigned long long opc) {
    std::unique_ptr<CQOV_MsgPackage> content = messageTo(gid, opc);
    BlockPtr block = blockOf(content.get());
    if (loader().sendMsg(gid, block.get()) != 0) {
      return false;
    }
    static_cast<void>(block.release());
    static_cast<void>(content.release());
    return true;
  }

  void broadcasts(std::unique_ptr<CQOV_MsgPackage> content) {
    loader().sendMsg2All(blockOf(content.release()).release());
  }

  /// Keeps the one worker of `module` busy until the gate opens.
  void occupy(const std::string& module, u_short gid) {
    ASSERT_TRUE(sends(gid, kWaitAtGate));
    ASSERT_TRUE(waitForEvent(module + " got 900 with 1 records"));
  }

  /// Does `send` until it returns false; returns how often it was done.
  static int untilRefused(const std::function<bool()>& send) {
    constexpr int kMoreThanAnyQueueTakes = 1000000;
    int count = 1;
    while (send() && count < kMoreThanAnyQueueTakes) {
      ++count;
    }
    EXPECT_LT(count, kMoreThanAnyQueueTakes);
    return count;
  }
};

TEST_F(ModuleRouting, DeliversToTheModuleOfTheGid) {
  loads({"alpha", "beta"});
  EXPECT_TRUE(sends(kBeta, 11));
  EXPECT_TRUE(waitForEvent("beta got 11 with 1 records"));
  EXPECT_EQ(countEvent("alpha got 11 with 1 records"), 0);
}

TEST_F(ModuleRouting, RefusesANullBlock) {
  EXPECT_EQ(loader().sendMsg(9, nullptr), -1);
  EXPECT_THAT(messages("WARN"), ElementsAre("Null message which pid is 9."));
}

TEST_F(ModuleRouting, RefusesPid256AndLeavesTheBlock) {
  const BlockPtr block(new ACE_Message_Block(8));
  EXPECT_EQ(loader().sendMsg(256, block.get()), -1);
  EXPECT_EQ(block->reference_count(), 1);
  EXPECT_THAT(messages("WARN"), ElementsAre("Pid 256 is invalid!"));
}

TEST_F(ModuleRouting, RefusesAGidThatNobodyHasAndLeavesTheBlock) {
  const BlockPtr block(new ACE_Message_Block(8));
  EXPECT_EQ(loader().sendMsg(255, block.get()), -1);
  EXPECT_EQ(block->reference_count(), 1);
  EXPECT_THAT(messages("WARN"), ElementsAre("Pid 255 is invalid!"));
}

TEST_F(ModuleRouting, RefusesAtOnceWhenTheModuleIsFull) {
  loads({"alpha"});
  occupy("alpha", kAlpha);
  untilRefused([this] { return sends(kAlpha, 12); });
  EXPECT_THAT(messages("ERR"), ElementsAre("Failed to send message to pid 3."));
}

TEST_F(ModuleRouting, BroadcastRefusesANullBlock) {
  loader().sendMsg2All(nullptr);
  EXPECT_THAT(messages("WARN"), ElementsAre("Null message."));
}

TEST_F(ModuleRouting, BroadcastGivesEachModuleAPackageOfItsOwn) {
  loads({"alpha", "beta"});
  broadcasts(messageTo(kAlpha, 20));
  EXPECT_TRUE(waitForEvent("alpha got 20 with 1 records"));
  EXPECT_TRUE(waitForEvent("beta got 20 with 1 records"));
  EXPECT_THAT(messages("ERR"), IsEmpty());
}

/// An address that a broadcast may come with.
class ModuleRoutingOfBroadcasts : public ModuleRouting,
                                  public ::testing::WithParamInterface<std::pair<int, int>> {};

INSTANTIATE_TEST_SUITE_P(Address, ModuleRoutingOfBroadcasts,
                         ::testing::Values(std::pair(255, 255), std::pair(7, 255), std::pair(7, 3),
                                           std::pair(8, 3)));

TEST_P(ModuleRoutingOfBroadcasts, ArriveOnceAtEveryModule) {
  loads({"first", "alpha", "beta", "last"});
  std::unique_ptr<CQOV_MsgPackage> message = messageTo(0, 27);
  message->head().rpid_ = static_cast<std::uint8_t>(GetParam().first);
  message->head().rmid_ = static_cast<std::uint8_t>(GetParam().second);
  broadcasts(std::move(message));
  const std::vector<std::string> modules{"first", "alpha", "beta", "last"};
  for (const std::string& module : modules) {
    EXPECT_TRUE(waitForEvent(module + " got 27 with 1 records"));
  }
  // What comes behind it in every queue has overtaken nothing.
  broadcasts(messageTo(0, 28));
  for (const std::string& module : modules) {
    EXPECT_TRUE(waitForEvent(module + " got 28 with 1 records"));
    EXPECT_EQ(countEvent(module + " got 27 with 1 records"), 1);
  }
  EXPECT_THAT(messages("ERR"), IsEmpty());
  EXPECT_THAT(messages("WARN"), IsEmpty());
}

TEST_F(ModuleRouting, ABroadcastRequestArrivesAtItsSendersModuleToo) {
  loads({"alpha", "beta"});
  std::unique_ptr<CQOV_MsgPackage> message = messageTo(kAlpha, 29);
  message->head().type_ = QOVMsgHead::kRequest;
  message->head().spid_ = message->head().rpid_;
  message->head().smid_ = kAlpha;
  broadcasts(std::move(message));
  EXPECT_TRUE(waitForEvent("alpha got 29 with 1 records"));
  EXPECT_TRUE(waitForEvent("beta got 29 with 1 records"));
  EXPECT_THAT(messages("WARN"), IsEmpty());
}

TEST_F(ModuleRouting, BroadcastWithoutModulesFreesBlockAndPackage) {
  struct Counted : CQOV_MsgPackage {
    ~Counted() override { recordEvent("package deleted"); }
  };
  broadcasts(messageTo<Counted>(kAlpha, 21));
  EXPECT_THAT(events(), ElementsAre("package deleted"));
  EXPECT_THAT(messages("WARN"), IsEmpty());
}

/// An OM message to alpha whose inner package tells when it is deleted.
std::unique_ptr<CQOV_MsgPackage> omMessageToAlpha(unsigned long long opc) {
  struct Counted : CT7QPackageV3 {
    ~Counted() override { recordEvent("inner package deleted"); }
  };
  auto made = std::make_unique<CQOV_OM_MsgPackage>(new Counted);
  const std::uint8_t flags = made->head().flags_;
  made->head() = messageTo(kAlpha, opc)->head();
  made->head().flags_ = flags;
  return made;
}

TEST_F(ModuleRouting, BroadcastWithoutModulesFreesTheInnerPackageToo) {
  broadcasts(omMessageToAlpha(24));
  EXPECT_THAT(events(), ElementsAre("inner package deleted"));
}

TEST_F(ModuleRouting, AnOmPackageIsFreedByTheModuleThatGotIt) {
  loads({"alpha"});
  const BlockPtr block = blockOf(omMessageToAlpha(25).release());
  ASSERT_EQ(loader().sendMsg(kAlpha, block->duplicate()), 0);
  EXPECT_TRUE(waitForEvent("alpha got 25 with an inner package"));
  EXPECT_TRUE(waitForEvent("inner package deleted"));
}

TEST_F(ModuleRouting, BroadcastGivesEachModuleAnInnerPackageOfItsOwn) {
  loads({"alpha", "beta"});
  auto message = std::make_unique<CQOV_OM_MsgPackage>(new CT7QPackageV3);
  message->head() = messageTo(kAlpha, 26)->head();
  broadcasts(std::move(message));
  EXPECT_TRUE(waitForEvent("alpha got 26 with an inner package"));
  EXPECT_TRUE(waitForEvent("beta got 26 with an inner package"));
  EXPECT_THAT(messages("ERR"), IsEmpty());
}

TEST_F(ModuleRouting, BroadcastPassesOverAModuleThatIsFull) {
  loads({"first", "beta", "last"});
  occupy("beta", kBeta);
  untilRefused([this] { return sends(kBeta, 12); });
  log.clear();
  const int rounds = untilRefused([this] {
    broadcasts(messageTo(kBeta, 22));
    return log.text().find("Failed to send message") == std::string::npos;
  });
  EXPECT_THAT(messages("ERR"), ElementsAre("Failed to send message to pid 5."));
  EXPECT_TRUE(waitForEvent("first got 22 with 1 records", rounds));
  EXPECT_TRUE(waitForEvent("last got 22 with 1 records", rounds));
}

TEST_F(ModuleRouting, BroadcastClonesBlocksThatAreNoPackages) {
  loads({"alpha", "beta"});
  ACE_Message_Block* const block = new ACE_Message_Block(0, ACE_Message_Block::MB_HANGUP);
  loader().sendMsg2All(block);
  EXPECT_THAT(messages("ERR"), IsEmpty());
  EXPECT_TRUE(log.waitFor("received hangup-message!", 2));
}

TEST_F(ModuleRouting, BroadcastOfADerivedPackageEndsAndLeavesItWithTheCaller) {
  loads({"alpha"});
  const std::unique_ptr<CQOV_MsgPackage> content = messageTo<DerivedPackage>(kAlpha, 23);
  const BlockPtr block = blockOf(content.get());
  loader().sendMsg2All(block.get());
  EXPECT_EQ(block->reference_count(), 1);
  EXPECT_EQ(content->count(), 1u);
  EXPECT_THAT(messages("ERR"), ElementsAre("Failed to copy message: Operation not supported."));
}

TEST_F(ModuleRouting, SendersMeetNoModuleThatIsBeingUnloaded) {
  loads({"first", "alpha", "beta", "last"});
  std::atomic<bool> stop{false};
  std::atomic<int> refused{0};
  std::vector<std::thread> senders;
  for (int i = 0; i < 3; ++i) {
    senders.emplace_back([&] {
      while (!stop) {
        for (const u_short gid : {u_short{0}, kAlpha, kBeta, u_short{255}}) {
          refused += sends(gid, 30) ? 0 : 1;
        }
      }
    });
  }
  EXPECT_TRUE(waitForEvent("last got 30 with 1 records"));
  loader().unload();
  const int refusedBefore = refused;
  while (refused < refusedBefore + 12) {
    std::this_thread::yield();
  }
  stop = true;
  for (std::thread& sender : senders) {
    sender.join();
  }
  EXPECT_THAT(messages("WARN"),
              ElementsAre("Unload module qovt_first!", "Unload module qovt_alpha!",
                          "Unload module qovt_beta!", "Unload module qovt_last!"));
}

TEST_F(ModuleRouting, TracesItsOperations) {
  const std::string send = "int CQOV_Module_Loader::sendMsg(u_short, ACE_Message_Block*)";
  const std::string broadcast = "void CQOV_Module_Loader::sendMsg2All(ACE_Message_Block*)";
  const std::string putq = "int CQOV_TaskMgr::putq(ACE_Message_Block*, ACE_Time_Value*)";
  loads({"alpha"});
  EXPECT_THAT(tracesOf([this] { sendsIgnored(loader(), kAlpha); }),
              ElementsAre("enter " + send + "...", "enter " + putq + "...",
                          "leave " + putq + ": OK", "leave " + send + ": OK"));
  EXPECT_THAT(tracesOf([this] { sendsIgnored(loader(), kBeta); }),
              ElementsAre("enter " + send + "...", "leave " + send + ": NOK"));
  EXPECT_THAT(tracesOf([this] { loader().sendMsg2All(new ACE_Message_Block(0, 77)); }),
              ElementsAre("enter " + broadcast + "...", "enter " + putq + "...",
                          "leave " + putq + ": OK", "leave " + broadcast + ": OK"));
  EXPECT_THAT(tracesOf([this] { loader().sendMsg2All(nullptr); }),
              ElementsAre("enter " + broadcast + "...", "leave " + broadcast + ": NOK"));
}

}  // namespace
}  // namespace qov::test
