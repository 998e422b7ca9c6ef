#include <qovpub/qov_om_message_package.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/module/libs/opcodes.h"
#include "tests/module/module_fixture.h"
#include "tests/module/package_blocks.h"
#include "tests/module/putq_hook.h"
#include "tests/support/failing_allocations.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace qov::test {
namespace {

constexpr u_short kTaker = 1;
constexpr u_short kAlpha = 3;
constexpr u_short kBeta = 5;
constexpr u_short kOtherTaker = 200;
constexpr std::uint8_t kProcess = 7;

std::unique_ptr<CQOV_MsgPackage> sentBy(u_short sender, std::unique_ptr<CQOV_MsgPackage> message) {
  message->head().spid_ = kProcess;
  message->head().smid_ = static_cast<std::uint8_t>(sender);
  return message;
}

/// Modules that take copies: "taker" of operation 50 of alpha and of all of beta, "other_taker" of
/// all of alpha.
class ModuleCopies : public ModuleTest {
 protected:
  /// By way of module `gid`.
  bool sends(u_short gid, std::unique_ptr<CQOV_MsgPackage> message) {
    BlockPtr block = blockOf(message.get());
    if (loader().sendMsg(gid, block.get()) != 0) {
      return false;
    }
    static_cast<void>(block.release());
    static_cast<void>(message.release());
    return true;
  }
  bool tells(u_short from, u_short to, unsigned long long opc) {
    return sends(to, sentBy(from, messageTo(to, opc)));
  }

  /// That the module has all that came to it so far, and how often it got `opc` among that.
  int countAt(const std::string& module, u_short gid, unsigned long long opc) {
    EXPECT_TRUE(tells(gid, gid, ++marks_));
    EXPECT_TRUE(waitForEvent(module + " got " + std::to_string(marks_) + " with 1 records"));
    return countEvent(module + " got " + std::to_string(opc) + " with 1 records");
  }
  int copies(unsigned long long opc) { return countAt("taker", kTaker, opc); }

  std::vector<std::string> warnings() const { return messages("WARN"); }

 private:
  unsigned long long marks_ = 10000;
};

TEST_F(ModuleCopies, OfWhatIsChosenComeToTheTaker) {
  loads({"taker", "alpha", "beta"});
  EXPECT_TRUE(tells(kAlpha, kBeta, 50));
  EXPECT_TRUE(tells(kAlpha, kBeta, 51));
  EXPECT_TRUE(tells(kBeta, kAlpha, 52));
  EXPECT_TRUE(waitForEvent("beta got 50 with 1 records"));
  EXPECT_TRUE(waitForEvent("beta got 51 with 1 records"));
  EXPECT_TRUE(waitForEvent("alpha got 52 with 1 records"));
  EXPECT_EQ(copies(50), 1);
  EXPECT_EQ(copies(51), 0);
  EXPECT_EQ(copies(52), 1);
  EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(ModuleCopies, AreTakenByEachWhoWantsThem) {
  loads({"taker", "alpha", "beta", "other_taker"});
  EXPECT_TRUE(tells(kAlpha, kBeta, 50));
  EXPECT_TRUE(tells(kAlpha, kBeta, 51));
  EXPECT_EQ(copies(50), 1);
  EXPECT_EQ(copies(51), 0);
  EXPECT_EQ(countAt("other_taker", kOtherTaker, 50), 1);
  EXPECT_EQ(countAt("other_taker", kOtherTaker, 51), 1);
}

TEST_F(ModuleCopies, AreEventsAsMuchAsNoticesAndNothingElse) {
  loads({"taker", "alpha", "beta"});
  for (int type = QOVMsgHead::kRequest; type <= QOVMsgHead::kEvent; ++type) {
    auto message = sentBy(kBeta, messageTo(kAlpha, 60 + static_cast<unsigned>(type)));
    message->head().type_ = static_cast<std::uint8_t>(type);
    EXPECT_TRUE(sends(kAlpha, std::move(message)));
  }
  EXPECT_EQ(copies(61), 0);
  EXPECT_EQ(copies(62), 0);
  EXPECT_EQ(copies(63), 1);
  EXPECT_EQ(copies(64), 1);
}

TEST_F(ModuleCopies, AreAsTheMessageButForTheReceiver) {
  loads({"taker", "alpha", "beta"});
  std::vector<unsigned> put;
  QOVMsgHead original;
  QOVMsgHead copied;
  {
    const PutqHook hook([&](const CQOV_TaskMgr& to, ACE_Message_Block* mb, const ACE_Time_Value*) {
      put.push_back(to.moduleId());
      (to.moduleId() == kTaker ? copied : original) = packageOf(*mb)->head();
      return std::optional<int>();
    });
    EXPECT_TRUE(tells(kAlpha, kBeta, 50));
  }
  EXPECT_THAT(put, ElementsAre(kBeta, kTaker));
  EXPECT_EQ(original.rmid_, kBeta);
  EXPECT_EQ(copied.rmid_, kTaker);
  EXPECT_EQ(copied.rpid_, kProcess);
  EXPECT_EQ(copied.smid_, kAlpha);
  EXPECT_EQ(copied.sn_, original.sn_);
  EXPECT_EQ(copied.opc_, 50U);
}

TEST_F(ModuleCopies, OfAnOmMessageHaveItsInnerPackage) {
  loads({"taker", "alpha", "beta"});
  auto message = std::make_unique<CQOV_OM_MsgPackage>(new CT7QPackageV3);
  message->head() = sentBy(kAlpha, messageTo(kBeta, 50))->head();
  EXPECT_TRUE(sends(kBeta, std::move(message)));
  EXPECT_TRUE(waitForEvent("taker got 50 with an inner package"));
  EXPECT_TRUE(waitForEvent("beta got 50 with an inner package"));
}

TEST_F(ModuleCopies, AreNotOfWhatTheTakerGetsOrSends) {
  loads({"taker", "alpha", "beta"});
  EXPECT_TRUE(tells(kAlpha, kTaker, 50));
  EXPECT_EQ(copies(50), 1);
  EXPECT_TRUE(tells(kTaker, kBeta, 51));
  EXPECT_EQ(copies(51), 0);
  loader().sendMsg2All(blockOf(sentBy(kBeta, messageTo(kAlpha, 52)).release()).release());
  EXPECT_EQ(copies(52), 1);
}

TEST_F(ModuleCopies, AreNotOfWhatStaysInAModuleOrComesFromAnotherProcess) {
  loads({"taker", "alpha", "beta"});
  EXPECT_TRUE(tells(kBeta, kBeta, 53));
  auto foreign = sentBy(kBeta, messageTo(kAlpha, 54));
  foreign->head().spid_ = kProcess + 1;
  EXPECT_TRUE(sends(kAlpha, std::move(foreign)));
  EXPECT_EQ(copies(53), 0);
  EXPECT_EQ(copies(54), 0);
}

TEST_F(ModuleCopies, AreMadeWhereAMessageArrivesAndNotOnItsWay) {
  loads({"taker", "alpha", "beta"});
  std::vector<unsigned> put;
  const PutqHook hook([&](const CQOV_TaskMgr& to, ACE_Message_Block* mb, const ACE_Time_Value*) {
    put.push_back(to.moduleId());
    releaseWithPackage(mb);
    return std::optional<int>(1);
  });
  EXPECT_TRUE(sends(kBeta, sentBy(kAlpha, messageTo(kAlpha, 50))));
  EXPECT_TRUE(sends(kAlpha, sentBy(kBeta, messageTo(kBeta, 50))));
  EXPECT_THAT(put, ElementsAre(kBeta, kAlpha));
  put.clear();
  EXPECT_TRUE(tells(kBeta, kAlpha, 50));
  EXPECT_THAT(put, ElementsAre(kAlpha, kTaker));
}

TEST_F(ModuleCopies, AreNotOfAMessageThatItsReceiverDoesNotTake) {
  loads({"taker", "alpha", "beta"});
  EXPECT_FALSE(tells(kAlpha, 99, 50));
  {
    const PutqHook hook([](const CQOV_TaskMgr&, ACE_Message_Block*, const ACE_Time_Value*) {
      errno = EWOULDBLOCK;
      return std::optional<int>(-1);
    });
    errno = 0;
    EXPECT_FALSE(tells(kAlpha, kBeta, 50));
    EXPECT_EQ(errno, EWOULDBLOCK);
  }
  EXPECT_EQ(copies(50), 0);
  EXPECT_THAT(messages("ERR"), ElementsAre("Failed to send message to pid 5."));
  EXPECT_THAT(warnings(), ElementsAre("Pid 99 is invalid!"));
}

TEST_F(ModuleCopies, ThatFindNoRoomAreDroppedAndHoldNobodyUp) {
  constexpr int kMoreThanAnyQueueTakes = 1000000;
  loads({"taker", "alpha", "beta"});
  ASSERT_TRUE(tells(kTaker, kTaker, kWaitAtGate));
  ASSERT_TRUE(waitForEvent("taker got 900 with 1 records"));
  int put = 0;
  while (put < kMoreThanAnyQueueTakes && tells(kTaker, kTaker, 12)) {
    ++put;
  }
  ASSERT_LT(put, kMoreThanAnyQueueTakes);
  int told = 0;
  while (told < kMoreThanAnyQueueTakes && warnings().empty()) {
    ASSERT_TRUE(tells(kAlpha, kBeta, 50));
    ++told;
  }
  EXPECT_THAT(warnings(), ElementsAre("Module(1) gets no copy of a message: SMID=3,OPC=50: there "
                                      "is no room for more messages."));
  EXPECT_TRUE(waitForEvent("beta got 50 with 1 records", told));
}

TEST_F(ModuleCopies, ThatAreNotTakenAreToldEachWithItsCause) {
  loads({"taker", "alpha", "beta", "other_taker"});
  {
    const PutqHook hook([](const CQOV_TaskMgr& to, ACE_Message_Block*, const ACE_Time_Value*) {
      if (to.moduleId() == kBeta) {
        return std::optional<int>();
      }
      errno = to.moduleId() == kTaker ? EWOULDBLOCK : ESHUTDOWN;
      return std::optional<int>(-1);
    });
    EXPECT_TRUE(tells(kAlpha, kBeta, 50));
  }
  const std::string before = " gets no copy of a message: SMID=3,OPC=50: ";
  EXPECT_THAT(warnings(), ElementsAre("Module(1)" + before + "there is no room for more messages.",
                                      "Module(200)" + before + "a module stops."));
}

/// The sizes of what a copy needs memory for.
class ModuleCopiesWithoutMemory : public ModuleCopies,
                                  public ::testing::WithParamInterface<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(For, ModuleCopiesWithoutMemory,
                         ::testing::Values(sizeof(CQOV_MsgPackage), sizeof(ACE_Message_Block)));

TEST_P(ModuleCopiesWithoutMemory, LeaveTheMessageAsItIs) {
  loads({"taker", "alpha", "beta"});
  auto message = sentBy(kAlpha, messageTo(kBeta, 50));
  BlockPtr block = blockOf(message.get());
  {
    const FailingAllocations failing = FailingAllocations::ofSize(GetParam());
    ASSERT_EQ(loader().sendMsg(kBeta, block.get()), 0);
    EXPECT_TRUE(failing.hasFailed());
  }
  static_cast<void>(block.release());
  static_cast<void>(message.release());
  EXPECT_TRUE(waitForEvent("beta got 50 with 1 records"));
  EXPECT_EQ(copies(50), 0);
  EXPECT_THAT(warnings(),
              ElementsAre("Module(1) gets no copy of a message: SMID=3,OPC=50: no memory."));
}

TEST_F(ModuleCopies, AreNotOfAPackageOfAClassOfItsOwn) {
  loads({"taker", "alpha", "beta"});
  EXPECT_TRUE(sends(kBeta, sentBy(kAlpha, messageTo<DerivedPackage>(kBeta, 50))));
  EXPECT_TRUE(waitForEvent("beta got 50 with 1 records"));
  EXPECT_EQ(copies(50), 0);
  EXPECT_THAT(warnings(), ElementsAre("Module(1) gets no copy of a message: SMID=3,OPC=50: it is "
                                      "of a class of its own."));
}

TEST_F(ModuleCopies, SendersMeetNoTakerThatIsBeingUnloaded) {
  loads({"taker", "alpha", "beta", "other_taker"});
  std::atomic<bool> stop{false};
  std::atomic<int> refused{0};
  std::vector<std::thread> senders;
  for (int i = 0; i < 3; ++i) {
    senders.emplace_back([&] {
      while (!stop) {
        refused += tells(kAlpha, kBeta, 50) ? 0 : 1;
        refused += tells(kBeta, kAlpha, 50) ? 0 : 1;
      }
    });
  }
  EXPECT_TRUE(waitForEvent("taker got 50 with 1 records", 100));
  EXPECT_TRUE(waitForEvent("other_taker got 50 with 1 records", 100));
  loader().unload();
  const int refusedBefore = refused;
  while (refused < refusedBefore + 12) {
    std::this_thread::yield();
  }
  stop = true;
  for (std::thread& sender : senders) {
    sender.join();
  }
  EXPECT_THAT(events(), ::testing::Contains("taker deleted"));
  EXPECT_THAT(events(), ::testing::Contains("other_taker deleted"));
}

}  // namespace
}  // namespace qov::test
