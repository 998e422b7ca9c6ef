#include <ace/Message_Block.h>
#include <ace/Time_Value.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include "tests/module/module_fixture.h"
#include "tests/module/package_blocks.h"
#include "tests/module/putq_hook.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/latch.h"

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace qov::test {
namespace {

constexpr u_short kAlpha = 3;
constexpr u_short kBeta = 5;

/// Long enough for what must not happen to be seen if it did.
constexpr std::chrono::milliseconds kAWhile{200};

/// What happens while the loader puts a block into a module's queue.
class ModulePutting : public ModuleTest {
 protected:
  /// Broadcasts a message to alpha when there is no memory for `size` bytes after the first
  /// delivery. The message stays with the caller.
  void copiesOnceOnly(std::size_t size) {
    loads({"alpha", "beta"});
    const std::unique_ptr<CQOV_MsgPackage> content = messageTo(kAlpha, 40);
    const BlockPtr block = blockOf(content.get());
    std::vector<unsigned> put;
    std::unique_ptr<FailingAllocations> failing;
    {
      const PutqHook hook([&](const CQOV_TaskMgr& to, ACE_Message_Block*, const ACE_Time_Value*) {
        put.push_back(to.moduleId());
        failing.reset(new FailingAllocations(FailingAllocations::ofSize(size)));
        return std::optional<int>();
      });
      loader().sendMsg2All(block.get());
    }
    ASSERT_NE(failing, nullptr);
    EXPECT_TRUE(failing->hasFailed());
    failing.reset();
    EXPECT_THAT(put, ElementsAre(kAlpha));
    EXPECT_TRUE(waitForEvent("alpha got 40 with 1 records"));
    EXPECT_EQ(block->reference_count(), 1);
    EXPECT_EQ(content->count(), 1u);
    EXPECT_THAT(messages("ERR"), ElementsAre("Failed to copy message: Cannot allocate memory."));
    EXPECT_THAT(messages("WARN"), IsEmpty());
  }
};

TEST_F(ModulePutting, PassesOneSecondOn) {
  loads({"alpha"});
  std::vector<ACE_Time_Value> timeouts;
  {
    const PutqHook hook(
        [&](const CQOV_TaskMgr&, ACE_Message_Block*, const ACE_Time_Value* timeout) {
          timeouts.push_back(*timeout);
          return std::optional<int>();
        });
    EXPECT_TRUE(sendsIgnored(loader(), kAlpha));
    loader().sendMsg2All(blockOf(messageTo(kAlpha, 41).release()).release());
  }
  EXPECT_THAT(timeouts, SizeIs(2));
  EXPECT_THAT(timeouts, Each(ACE_Time_Value(1, 0)));
}

TEST_F(ModulePutting, OfNothingIsASuccessForOneModule) {
  loads({"alpha"});
  const PutqHook hook([](const CQOV_TaskMgr&, ACE_Message_Block*, const ACE_Time_Value*) {
    return std::optional<int>(0);
  });
  const BlockPtr block(new ACE_Message_Block(8));
  EXPECT_EQ(loader().sendMsg(kAlpha, block.get()), 0);
  EXPECT_EQ(block->reference_count(), 1);
  EXPECT_THAT(messages("ERR"), IsEmpty());
}

TEST_F(ModulePutting, OfNothingIsAFailureForABroadcast) {
  loads({"alpha", "beta"});
  const PutqHook hook([](const CQOV_TaskMgr& to, ACE_Message_Block*, const ACE_Time_Value*) {
    return to.moduleId() == kAlpha ? std::optional<int>(0) : std::nullopt;
  });
  loader().sendMsg2All(blockOf(messageTo(kBeta, 42).release()).release());
  EXPECT_THAT(messages("ERR"), ElementsAre("Failed to send message to pid 3."));
  EXPECT_TRUE(waitForEvent("beta got 42 with 1 records"));
}

TEST_F(ModulePutting, ThatFailsLeavesTheBlockAndItsPackageWithTheSender) {
  loads({"alpha"});
  const PutqHook hook([](const CQOV_TaskMgr&, ACE_Message_Block*, const ACE_Time_Value*) {
    return std::optional<int>(-1);
  });
  const std::unique_ptr<CQOV_MsgPackage> content = messageTo(kAlpha, 43);
  const BlockPtr block = blockOf(content.get());
  EXPECT_EQ(loader().sendMsg(kAlpha, block.get()), -1);
  EXPECT_EQ(block->reference_count(), 1);
  EXPECT_EQ(content->count(), 1u);
  EXPECT_THAT(messages("ERR"), ElementsAre("Failed to send message to pid 3."));
}

TEST_F(ModulePutting, OfABroadcastGoesInTheOrderOfTheGidsWhateverFails) {
  loads({"last", "beta", "first", "alpha"});
  std::vector<unsigned> put;
  {
    const PutqHook hook([&](const CQOV_TaskMgr& to, ACE_Message_Block*, const ACE_Time_Value*) {
      put.push_back(to.moduleId());
      return std::optional<int>(-1);
    });
    loader().sendMsg2All(blockOf(messageTo(kAlpha, 44).release()).release());
  }
  EXPECT_THAT(put, ElementsAre(0u, 3u, 5u, 255u));
  EXPECT_THAT(
      messages("ERR"),
      ElementsAre("Failed to send message to pid 0.", "Failed to send message to pid 3.",
                  "Failed to send message to pid 5.", "Failed to send message to pid 255."));
}

TEST_F(ModulePutting, OfABroadcastEndsWhereAPackageCannotBeCopied) {
  copiesOnceOnly(sizeof(CQOV_MsgPackage));
}

TEST_F(ModulePutting, OfABroadcastEndsWhereABlockCannotBeCopied) {
  copiesOnceOnly(sizeof(ACE_Message_Block));
}

TEST_F(ModulePutting, IsDoneByManyThreadsAtOnce) {
  loads({"alpha", "beta"});
  const PutqHook hook([](const CQOV_TaskMgr& to, ACE_Message_Block*, const ACE_Time_Value*) {
    if (to.moduleId() == kAlpha) {
      recordEvent("at the gate");
      waitAtGate();
    }
    return std::optional<int>();
  });
  std::thread first([this] { sendsIgnored(loader(), kAlpha); });
  EXPECT_TRUE(waitForEvent("at the gate"));
  Latch sent;
  std::thread second([&] {
    sendsIgnored(loader(), kBeta);
    sent.count();
  });
  EXPECT_TRUE(sent.waitFor());
  openGate();
  first.join();
  second.join();
}

TEST_F(ModulePutting, KeepsTheModuleFromBeingDeleted) {
  loads({"alpha"});
  const PutqHook hook([](const CQOV_TaskMgr&, ACE_Message_Block*, const ACE_Time_Value*) {
    recordEvent("putting");
    waitForEvent("alpha deleted", 1, kAWhile);
    recordEvent("put");
    return std::optional<int>();
  });
  std::thread sender([this] { sendsIgnored(loader(), kAlpha); });
  EXPECT_TRUE(waitForEvent("putting"));
  loader().unload();
  sender.join();
  EXPECT_THAT(events(),
              ElementsAre("alpha created", "alpha initialised", "putting", "put", "alpha deleted"));
}

}  // namespace
}  // namespace qov::test
