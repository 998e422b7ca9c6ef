#include "frame/env/current_step.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "tests/support/failing_allocations.h"

namespace {

using qov::CurrentStep;

TEST(CurrentStep, IsEmptyWhileNoneIsOpen) {
  EXPECT_EQ(CurrentStep::open(), "");
  { const CurrentStep step("gone"); }
  EXPECT_EQ(CurrentStep::open(), "");
}

TEST(CurrentStep, NamesTheOpenOnesFromTheOutermostOn) {
  const CurrentStep outer("loading module %s", "a");
  {
    const CurrentStep inner("stopping module %u", 7U);
    EXPECT_EQ(CurrentStep::open(), "loading module a, stopping module 7");
  }
  EXPECT_EQ(CurrentStep::open(), "loading module a");
}

TEST(CurrentStep, IsSeenByOtherThreads) {
  const CurrentStep step("hanging");
  std::string seen;
  std::thread([&] { seen = CurrentStep::open(); }).join();
  EXPECT_EQ(seen, "hanging");
}

TEST(CurrentStep, MayEndBeforeALaterOneOfAnotherThread) {
  auto first = std::make_unique<CurrentStep>("first");
  const CurrentStep second("second");
  first.reset();
  EXPECT_EQ(CurrentStep::open(), "second");
}

TEST(CurrentStep, IsCutAt159Characters) {
  const std::string fits(159, 'x');
  const CurrentStep step("%s%s", fits.c_str(), "y");
  EXPECT_EQ(CurrentStep::open(), fits);
}

TEST(CurrentStep, ShowsTheOpenOnesInTheirPlace) {
  CurrentStep::Text place{};
  CurrentStep::showIn(&place);
  {
    const CurrentStep outer("loading module a");
    const CurrentStep inner("stopping module 7");
    EXPECT_STREQ(place.data(), "loading module a, stopping module 7");
  }
  EXPECT_STREQ(place.data(), "");
  CurrentStep::showIn(nullptr);
}

TEST(CurrentStep, FillsItsPlaceToTheLastCharacter) {
  CurrentStep::Text place{};
  CurrentStep::showIn(&place);
  const std::string half(80, 'x');
  {
    const CurrentStep outer("%s", half.c_str());
    const CurrentStep inner("%s", half.c_str());
    EXPECT_EQ(place.data(), half + ", " + half.substr(3));
    const CurrentStep beyond("none of this");
    EXPECT_EQ(place.data(), half + ", " + half.substr(3));
  }
  CurrentStep::showIn(nullptr);
}

TEST(CurrentStep, OpensAndClosesWhereThereIsNoMemory) {
  CurrentStep::Text place{};
  CurrentStep::showIn(&place);
  {
    const qov::test::FailingAllocations none(0);
    const CurrentStep outer("loading module %s", "with a name that is long");
    const CurrentStep inner("stopping module %u", 7U);
  }
  EXPECT_EQ(CurrentStep::open(), "");
  EXPECT_STREQ(place.data(), "");
  CurrentStep::showIn(nullptr);
}

}  // namespace
