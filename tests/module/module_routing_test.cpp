#include <ace/Message_Block.h>
#include <qovpub/qov_message_package.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "tests/module/libs/opcodes.h"
#include "tests/module/module_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace qov::test {
namespace {

constexpr u_short kAlpha = 3;
constexpr u_short kBeta = 5;
constexpr std::uint8_t kAsyncType = 3;

struct Release {
  void operator()(ACE_Message_Block* mb) const { mb->release(); }
};
using Block = std::unique_ptr<ACE_Message_Block, Release>;

class Derived : public CQOV_MsgPackage {};

template <class Package = CQOV_MsgPackage>
std::unique_ptr<CQOV_MsgPackage> package(unsigned long long opc) {
  std::unique_ptr<CQOV_MsgPackage> made = std::make_unique<Package>();
  made->head().type_ = kAsyncType;
  made->head().opc_ = opc;
  made->append(new CTLVRecordV3);
  return made;
}

/// A block that carries `content`, which it does not own.
Block blockOf(const CQOV_MsgPackage* content) {
  Block block(new ACE_Message_Block(sizeof content));
  block->copy(reinterpret_cast<const char*>(&content), sizeof content);
  return block;
}

class ModuleRouting : public ModuleTest {
 protected:
  /// Sends an asynchronous message to the module; `rmid` is its address there.
  bool sends(u_short gid, unsigned long long opc) {
    std::unique_ptr<CQOV_MsgPackage> content = package(opc);
    content->head().rpid_ = 7;
    content->head().rmid_ = static_cast<std::uint8_t>(gid);
    Block block = blockOf(content.get());
    if (loader().sendMsg(gid, block.get()) != 0) {
      return false;
    }
    static_cast<void>(block.release());
    static_cast<void>(content.release());
    return true;
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
  const Block block(new ACE_Message_Block(8));
  EXPECT_EQ(loader().sendMsg(256, block.get()), -1);
  EXPECT_EQ(block->reference_count(), 1);
  EXPECT_THAT(messages("WARN"), ElementsAre("Pid 256 is invalid!"));
}

TEST_F(ModuleRouting, RefusesAGidThatNobodyHasAndLeavesTheBlock) {
  const Block block(new ACE_Message_Block(8));
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
  std::unique_ptr<CQOV_MsgPackage> content = package(20);
  content->head().rpid_ = 7;
  content->head().rmid_ = kAlpha;
  loader().sendMsg2All(blockOf(content.release()).release());
  EXPECT_TRUE(waitForEvent("alpha got 20 with 1 records"));
  // beta's copy is no message for beta, and nobody it could go to is known to the process's loader.
  EXPECT_TRUE(log.waitFor("Failed to forword message: RPID=7,RMID=3,OPC=20"));
  EXPECT_THAT(messages("ERR"), IsEmpty());
}

TEST_F(ModuleRouting, BroadcastWithoutModulesFreesBlockAndPackage) {
  loader().sendMsg2All(blockOf(package(21).release()).release());
  EXPECT_THAT(messages("WARN"), IsEmpty());
}

TEST_F(ModuleRouting, BroadcastPassesOverAModuleThatIsFull) {
  loads({"first", "beta", "last"});
  occupy("beta", kBeta);
  untilRefused([this] { return sends(kBeta, 12); });
  log.clear();
  // A full module refuses what is addressed to it. The other two cannot pass their copies on.
  const int broadcasts = untilRefused([this] {
    std::unique_ptr<CQOV_MsgPackage> content = package(22);
    content->head().rpid_ = 7;
    content->head().rmid_ = static_cast<std::uint8_t>(kBeta);
    loader().sendMsg2All(blockOf(content.release()).release());
    return log.text().find("Failed to send message") == std::string::npos;
  });
  EXPECT_THAT(messages("ERR"), ElementsAre("Failed to send message to pid 5."));
  EXPECT_TRUE(log.waitFor("Failed to forword message: RPID=7,RMID=5,OPC=22", 2 * broadcasts));
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
  const std::unique_ptr<CQOV_MsgPackage> content = package<Derived>(23);
  const Block block = blockOf(content.get());
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

}  // namespace
}  // namespace qov::test
