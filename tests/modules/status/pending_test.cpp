// What the module tells of requests that wait.
#include "tests/modules/status/status_fixture.h"

namespace qov::test {
namespace {

using nlohmann::json;

class StatusOfRequests : public StatusTest {
 protected:
  json pending() { return client().ask({{"request", "pending"}}); }
  /// Waits until two requests wait: the module "asking" has asked, and been asked by "asked".
  bool bothWait() {
    return waitUntil([&] { return pending()["requests"].size() == 2; });
  }
  /// The one of these objects that is of module `id`.
  static json ofModule(const json& objects, int id) {
    for (const json& one : objects) {
      if (one["module"] == id) {
        return one;
      }
    }
    ADD_FAILURE() << "none of module " << id << " in " << objects;
    return {};
  }
};

TEST_F(StatusOfRequests, TellsWhoWaitsForWhomAndSince) {
  startsWith({"asking", "asked"});
  ASSERT_TRUE(bothWait()) << pending();
  const json document = pending();
  const json request = ofModule(document["requests"], 20);
  EXPECT_EQ(request["thread"]["name"], "m20-worker-1");
  EXPECT_EQ(request["receiver"], json({{"process", 7}, {"module", 21}}));
  EXPECT_EQ(request["operation"], 1001);
  EXPECT_EQ(request["timeout"], 600);
  EXPECT_GT(request["waiting"], 0);
  EXPECT_EQ(request["handler"]["name"], "m21-worker-1");
  EXPECT_TRUE(ofModule(document["requests"], 21)["handler"].is_null());
  stopsInOrder();
}

TEST_F(StatusOfRequests, TellsWhatWorkersDo) {
  startsWith({"asking", "asked"});
  ASSERT_TRUE(bothWait());
  const json handler = ofModule(pending()["handlers"], 21);
  EXPECT_EQ(handler["thread"]["name"], "m21-worker-1");
  EXPECT_EQ(handler["operation"], 1001);
  EXPECT_EQ(handler["sender"], json({{"process", 7}, {"module", 20}}));
  EXPECT_EQ(handler["continuation"], false);
  EXPECT_EQ(handler["waitsFor"]["receiver"]["module"], 20);
  EXPECT_EQ(handler["waitsFor"]["operation"], 1002);
}

TEST_F(StatusOfRequests, NamesACircle) {
  startsWith({"asking", "asked"});
  EXPECT_TRUE(waitUntil([&] { return pending()["circles"] == json({{20, 21, 20}}); })) << pending();
}

TEST_F(StatusOfRequests, NamesNoneWhereNobodyWaits) {
  startsWith({"chatter"});
  const json document = pending();
  EXPECT_EQ(document["requests"], json::array());
  EXPECT_EQ(document["circles"], json::array());
}

}  // namespace
}  // namespace qov::test
