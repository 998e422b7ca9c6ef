#include "frame/current_step.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

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

}  // namespace
