// What the module tells of the times that handlers take.
#include "tests/modules/status/status_fixture.h"

namespace qov::test {
namespace {

using nlohmann::json;

class StatusOfHandlers : public StatusTest {
 protected:
  json slow() { return client().ask({{"request", "slow"}}); }
};

TEST_F(StatusOfHandlers, TellsHowLongTheyTakeByOperationCode) {
  startsWith({"chatter"});
  ASSERT_TRUE(waitUntil([&] {
    const json handlers = slow()["handlers"];
    return !handlers.empty() && handlers[0]["count"] > 10;
  }));
  const json document = slow();
  ASSERT_EQ(document["handlers"].size(), 1u);
  const json times = document["handlers"][0];
  EXPECT_EQ(times["module"], 1);
  EXPECT_EQ(times["operation"], 0);
  EXPECT_EQ(times["continuation"], false);
  EXPECT_GT(times["mean"], 0);
  EXPECT_LE(times["mean"], times["longest"]);
  EXPECT_GT(times["median"], 0);
  EXPECT_LE(times["median"], times["percentile99"]);
  EXPECT_LE(times["percentile99"], times["longest"]);
  EXPECT_EQ(document["modules"][0]["name"], "chatter");
}

TEST_F(StatusOfHandlers, AreNoneWhereNoneHasEnded) {
  startsWith({"asking", "asked"});
  ASSERT_TRUE(waitUntil([&] {
    return client().ask({{"request", "pending"}})["requests"].size() == 2;
  }));
  EXPECT_EQ(slow()["handlers"], json::array());
}

}  // namespace
}  // namespace qov::test
