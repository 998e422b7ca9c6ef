#include <gtest/gtest.h>
#include <qovpub/qov_common_debugkit.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr unsigned int kSmallId = 7;
constexpr unsigned int kLargeId = 4000000000U;

TEST(DebugKitMgr, HoldsThePublicKitFromTheStart) {
  CQOVDebugKitMgr kits;
  ASSERT_NE(kits.find(0), nullptr);
  EXPECT_EQ(kits.find(0)->name(), "QOVPUBLIC");
  EXPECT_EQ(kits.find(0)->id(), 0U);
}

TEST(DebugKitMgr, FindsAKitUnderItsId) {
  CQOVDebugKitMgr kits;
  for (const unsigned int id : {1U, kSmallId, 255U, 256U, kLargeId}) {
    auto* const kit = new CQOVDebugKit("K", id);
    ASSERT_EQ(kits.add(kit), 1);
    EXPECT_EQ(kits.find(id), kit);
  }
}

TEST(DebugKitMgr, FallsBackToThePublicKit) {
  CQOVDebugKitMgr kits;
  EXPECT_EQ(kits.find(kSmallId), kits.find(0));
  EXPECT_EQ(kits.find(kLargeId), kits.find(0));
}

TEST(DebugKitMgr, FindsNothingOnceThePublicKitIsGone) {
  CQOVDebugKitMgr kits;
  const std::unique_ptr<CQOVDebugKit> removed(kits.remove(0));
  ASSERT_NE(removed, nullptr);
  EXPECT_EQ(removed->name(), "QOVPUBLIC");
  EXPECT_EQ(kits.find(0), nullptr);
  EXPECT_EQ(kits.find(kSmallId), nullptr);
  EXPECT_EQ(kits.find(kLargeId), nullptr);
}

TEST(DebugKitMgr, RefusesATakenIdAndKeepsTheFirstKit) {
  CQOVDebugKitMgr kits;
  for (const unsigned int id : {0U, kSmallId, kLargeId}) {
    if (id != 0) {
      ASSERT_EQ(kits.add(new CQOVDebugKit("FIRST", id)), 1);
    }
    CQOVDebugKit* const first = kits.find(id);
    CQOVDebugKit second("SECOND", id);
    EXPECT_EQ(kits.add(&second), 0);
    EXPECT_EQ(kits.find(id), first);
  }
}

TEST(DebugKitMgr, RefusesNull) {
  CQOVDebugKitMgr kits;
  EXPECT_EQ(kits.add(nullptr), 0);
}

TEST(DebugKitMgr, GivesARemovedKitToTheCaller) {
  CQOVDebugKitMgr kits;
  for (const unsigned int id : {kSmallId, kLargeId}) {
    auto* const kit = new CQOVDebugKit("K", id);
    ASSERT_EQ(kits.add(kit), 1);
    const std::unique_ptr<CQOVDebugKit> removed(kits.remove(id));
    EXPECT_EQ(removed.get(), kit);
    EXPECT_EQ(kits.find(id)->name(), "QOVPUBLIC");
    EXPECT_EQ(kits.add(new CQOVDebugKit("NEXT", id)), 1);
    EXPECT_EQ(kits.find(id)->name(), "NEXT");
  }
}

TEST(DebugKitMgr, ReportsAnUnknownIdWithEnoent) {
  CQOVDebugKitMgr kits;
  errno = 0;
  EXPECT_EQ(kits.remove(kSmallId), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST(DebugKitMgr, IsOnePerProcessAndEmptyAfterClose) {
  CQOVDebugKitMgr* const kits = CQOVDebugKitMgr::instance();
  EXPECT_EQ(CQOVDebugKitMgr::instance(), kits);
  for (const unsigned int id : {kSmallId, kLargeId}) {
    EXPECT_EQ(kits->add(new CQOVDebugKit("K", id)), 1);
  }
  CQOVDebugKitMgr::close();
  EXPECT_EQ(CQOVDebugKitMgr::instance()->find(kSmallId)->name(), "QOVPUBLIC");
  EXPECT_EQ(CQOVDebugKitMgr::instance()->find(kLargeId)->name(), "QOVPUBLIC");
  CQOVDebugKitMgr::close();
  CQOVDebugKitMgr::close();
}

TEST(DebugKitMgr, KeepsThePublicKitWhenItIsClosed) {
  const CQOVDebugKit* const kit = CQOVDebugKitMgr::instance()->find(0);
  CQOVDebugKitMgr::close();
  EXPECT_EQ(CQOVDebugKitMgr::instance()->find(0), kit) << "a detached thread may be using it";
}

TEST(DebugKitMgr, HasThePublicKitAgainAfterClose) {
  const std::unique_ptr<CQOVDebugKit> removed(CQOVDebugKitMgr::instance()->remove(0));
  CQOVDebugKitMgr::close();
  ASSERT_NE(CQOVDebugKitMgr::instance()->find(0), nullptr);
  const std::unique_ptr<CQOVDebugKit> again(CQOVDebugKitMgr::instance()->remove(0));
  EXPECT_EQ(CQOVDebugKitMgr::instance()->add(new CQOVDebugKit("OTHER", 0)), 1);
  CQOVDebugKitMgr::close();
  EXPECT_EQ(CQOVDebugKitMgr::instance()->find(0)->name(), "QOVPUBLIC");
}

TEST(DebugKitMgr, IsTheOneThatAcesSingletonHolds) {
  using Registry = ACE_Unmanaged_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>;
  EXPECT_EQ(CQOVDebugKitMgr::instance(), Registry::instance());
  Registry::close();
  EXPECT_EQ(CQOVDebugKitMgr::instance(), Registry::instance());
  CQOVDebugKitMgr::close();
}

TEST(DebugKitMgr, IsMadeOnceByThreadsThatAskTogether) {
  CQOVDebugKitMgr::close();
  std::vector<CQOVDebugKitMgr*> seen(8);
  std::atomic<size_t> ready{0};
  std::vector<std::thread> threads;
  for (auto& slot : seen) {
    threads.emplace_back([&] {
      for (++ready; ready < seen.size();) {
      }
      slot = CQOVDebugKitMgr::instance();
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  for (const CQOVDebugKitMgr* const registry : seen) {
    EXPECT_EQ(registry, CQOVDebugKitMgr::instance());
  }
  CQOVDebugKitMgr::close();
}

TEST(DebugKitMgr, AnswersWhileOthersAddAndRemove) {
  for (const unsigned int id : {kSmallId, kLargeId}) {
    CQOVDebugKitMgr kits;
    CQOVDebugKit first("K", id);
    CQOVDebugKit second("K", id);
    std::atomic<int> changing{2};
    const auto change = [&](CQOVDebugKit& kit) {
      for (int round = 0; round < 2000; ++round) {
        if (kits.add(&kit) == 1) {
          EXPECT_EQ(kits.remove(id), &kit);
        }
      }
      --changing;
    };
    std::thread one([&] { change(first); });
    std::thread two([&] { change(second); });
    while (changing > 0) {
      const CQOVDebugKit* const found = kits.find(id);
      EXPECT_TRUE(found == &first || found == &second || found == kits.find(0));
    }
    one.join();
    two.join();
    EXPECT_EQ(kits.find(id), kits.find(0));
  }
}

}  // namespace
