#include <gtest/gtest.h>
#include <pthread.h>
#include <qovpub/qov_message_package.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <thread>
#include <vector>

namespace {

// Taken before main, as a module's own static objects may do.
const CQOV_MsgPackage packageBeforeMain;

TEST(MsgHead, LaysItsFieldsOutAsOnTheWire) {
  EXPECT_EQ(sizeof(QOVMsgHead), 32U);
  EXPECT_EQ(offsetof(QOVMsgHead, version_), 4U);
  EXPECT_EQ(offsetof(QOVMsgHead, type_), 5U);
  EXPECT_EQ(offsetof(QOVMsgHead, mst_), 6U);
  EXPECT_EQ(offsetof(QOVMsgHead, spid_), 7U);
  EXPECT_EQ(offsetof(QOVMsgHead, smid_), 8U);
  EXPECT_EQ(offsetof(QOVMsgHead, rpid_), 9U);
  EXPECT_EQ(offsetof(QOVMsgHead, rmid_), 10U);
  EXPECT_EQ(offsetof(QOVMsgHead, flags_), 11U);
  EXPECT_EQ(offsetof(QOVMsgHead, cid_), 12U);
  EXPECT_EQ(offsetof(QOVMsgHead, sn_), 16U);
  EXPECT_EQ(offsetof(QOVMsgHead, opc_), 20U);
  EXPECT_EQ(offsetof(QOVMsgHead, len_), 28U);
}

TEST(MsgHead, LaysTheFieldsOfTheV3HeaderOutAsOnTheWire) {
  EXPECT_EQ(sizeof(TLVMsgHeadV3), 28U);
  EXPECT_EQ(offsetof(TLVMsgHeadV3, ret_), 8U);
  EXPECT_EQ(offsetof(TLVMsgHeadV3, ssk_), 12U);
  EXPECT_EQ(offsetof(TLVMsgHeadV3, nid_), 16U);
  EXPECT_EQ(offsetof(TLVMsgHeadV3, reserved_), 18U);
  EXPECT_EQ(offsetof(TLVMsgHeadV3, bid_), 20U);
  EXPECT_EQ(offsetof(TLVMsgHeadV3, ser_), 22U);
  EXPECT_EQ(offsetof(TLVMsgHeadV3, len_), 24U);
}

TEST(MsgHead, StartsWithItsDefaults) {
  const QOVMsgHead head;
  EXPECT_EQ(head.magic_, 0x013268A8U);
  EXPECT_EQ(head.version_, 1);
  EXPECT_EQ(head.type_, 0);
  EXPECT_EQ(head.mst_, 0);
  EXPECT_EQ(head.spid_, 255);
  EXPECT_EQ(head.smid_, 255);
  EXPECT_EQ(head.rpid_, 255);
  EXPECT_EQ(head.rmid_, 255);
  EXPECT_EQ(head.flags_, 0);
  EXPECT_EQ(head.cid_, -1);
  EXPECT_EQ(head.opc_, 0U);
  EXPECT_EQ(head.len_, 0U);
}

TEST(MsgHead, StartsTheV3HeaderWithItsDefaults) {
  const TLVMsgHeadV3 head;
  EXPECT_EQ(head.magic_, 0x55555555U);
  EXPECT_EQ(head.version_, 3U);
  EXPECT_EQ(head.ret_, 0U);
  EXPECT_EQ(head.ssk_, 0xFFFFFFFFU);
  EXPECT_EQ(head.nid_, 0xFFFD);
  EXPECT_EQ(head.reserved_, 0xFFFF);
  EXPECT_EQ(head.bid_, 0xFFFF);
  EXPECT_EQ(head.ser_, 0xFFFF);
  EXPECT_EQ(head.len_, 0U);
}

TEST(MsgHead, CountsItsSerialsFromTheLoadingThreadsId) {
  const auto loader = static_cast<std::uint32_t>(pthread_self());
  EXPECT_EQ(packageBeforeMain.head().sn_, loader + 1);
}

TEST(MsgHead, GivesEachNewHeaderTheNextSerialAndACopyTheSame) {
  const QOVMsgHead first;
  const QOVMsgHead second;
  const QOVMsgHead copy(first);
  EXPECT_EQ(second.sn_, first.sn_ + 1);
  EXPECT_EQ(QOVMsgHead::u32SN_, second.sn_);
  EXPECT_EQ(copy.sn_, first.sn_);
}

TEST(MsgHead, WrapsItsSerialAt32Bits) {
  const std::uint32_t before = QOVMsgHead::u32SN_;
  QOVMsgHead::u32SN_ = 0xFFFFFFFF;
  EXPECT_EQ(QOVMsgHead().sn_, 0U);
  QOVMsgHead::u32SN_ = before;
}

TEST(MsgHead, GivesNoSerialTwiceWhenThreadsBuildHeadersAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kHeaders = 5000;
  std::vector<std::vector<std::uint32_t>> taken(kThreads);
  std::vector<std::thread> threads;
  for (auto& mine : taken) {
    threads.emplace_back([&mine] {
      for (int i = 0; i < kHeaders; ++i) {
        mine.push_back(QOVMsgHead().sn_);
      }
    });
  }
  std::vector<std::uint32_t> all;
  for (int i = 0; i < kThreads; ++i) {
    threads[static_cast<std::size_t>(i)].join();
    all.insert(all.end(), taken[static_cast<std::size_t>(i)].begin(),
               taken[static_cast<std::size_t>(i)].end());
  }
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
}

class V3Serial : public testing::Test {
 protected:
  static std::uint16_t next() {
    TLVMsgHeadV3 head;
    TLVMsgHeadV3::allocateSerial(head);
    return head.ser_;
  }
  static void restartAt(std::uint16_t value) { TLVMsgHeadV3::oAtomicSerial_ = value; }
};

TEST_F(V3Serial, CountsFromOneInANewProcess) {
  restartAt(0);
  EXPECT_EQ(next(), 1);
  EXPECT_EQ(next(), 2);
}

TEST_F(V3Serial, GoesOnWithTwoAfter32767) {
  restartAt(32765);
  EXPECT_EQ(next(), 32766);
  EXPECT_EQ(next(), 32767);
  EXPECT_EQ(next(), 2);
}

TEST_F(V3Serial, StaysBetweenTwoAnd32767InAllThreads) {
  restartAt(32000);
  std::atomic<int> outside{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&outside] {
      for (int n = 0; n < 2000; ++n) {
        const std::uint16_t serial = next();
        // Threads that meet at the end of the range may pass it by as many as they are.
        if (serial < 1 || serial > 32767 + 4) {
          ++outside;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(outside, 0);
}

}  // namespace
