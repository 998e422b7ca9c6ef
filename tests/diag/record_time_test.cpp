#include "diag/record_time.h"

#include <gtest/gtest.h>
#include <qovpub/qov_utility.h>

#include <cstdlib>
#include <future>
#include <string>
#include <thread>

#include "tests/support/child.h"

namespace {

constexpr time_t kDay = 86400;
constexpr time_t kYear2400 = 13569465600;

class RecordTime : public testing::Test {
 protected:
  ~RecordTime() override {
    ::unsetenv("TZ");
    ::tzset();
    over_.set_value();
    other_.join();
  }

  static void setZone(const char* zone) { ::setenv("TZ", zone, 1); }

  /// The first second of those of some centuries for which a child has another text; -1: none.
  static time_t firstDifference() {
    for (time_t second = kDay; second < kYear2400; second += kDay - 1) {
      if (qov::recordTime(second).view() != UtcTimeToLocalTimeStr(second, "/")) {
        return second;
      }
    }
    return -1;
  }

  // A process of several threads, one of which is at nothing.
  std::promise<void> over_;
  std::thread other_{[this] { over_.get_future().wait(); }};
};

TEST_F(RecordTime, IsTheSameInAChild) {
  for (const char* const zone : {"UTC", "EAST-5:30", "WEST+11"}) {
    setZone(zone);
    EXPECT_TRUE(qov::test::holdsInChild([] { return firstDifference() == -1; })) << zone;
  }
}

TEST_F(RecordTime, KeepsTheOffsetOfTheForkInAChildAndItsChildren) {
  setZone("EAST-2");
  EXPECT_TRUE(qov::test::holdsInChild([] {
    setZone("WEST+3");
    return qov::test::holdsInChild(
        [] { return qov::recordTime(kDay).view() == "1970/01/02 02:00:00"; });
  }));
  setZone("WEST+3");
  EXPECT_EQ(qov::recordTime(kDay).view(), "1970/01/01 21:00:00") << "the parent goes by its zone";
}

}  // namespace
