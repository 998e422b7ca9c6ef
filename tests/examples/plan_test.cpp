#include <gtest/gtest.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_testkit.h>

#include "examples/uplink/plan.h"

namespace devagent {
namespace {

class UplinkPlan : public ::testing::Test {
 protected:
  UplinkPlan() {
    process_.configureDevice("default", "Fetch", "no");
    process_.configureDevice("default", "PeriodMs", "1000");
  }

  QOVTestProcess process_;
};

TEST_F(UplinkPlan, HasTheTablesThatAreWanted) {
  process_.configureDevice("mounts", "Fetch", "yes");
  process_.configureDevice("mounts", "PeriodMs", "250");

  const Plan plan = readPlan();

  ASSERT_EQ(plan.tables.size(), 1U);
  EXPECT_EQ(plan.tables[0].name, "mounts");
  EXPECT_EQ(plan.tables[0].period, std::chrono::milliseconds(250));
  EXPECT_EQ(plan.pushPeriod, std::chrono::seconds(1));
}

TEST_F(UplinkPlan, HasNoPeriodOfZero) {
  process_.configureDevice("records", "PeriodMs", "0");
  EXPECT_THROW(readPlan(), CQOV_Exception);

  process_.configureDevice("records", "PeriodMs", "1");
  EXPECT_EQ(readPlan().pushPeriod, std::chrono::milliseconds(1));
}

}  // namespace
}  // namespace devagent
