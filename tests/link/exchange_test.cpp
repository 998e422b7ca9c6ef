#include "tests/link/link_fixture.h"

using ::testing::ElementsAre;

namespace qov::test {
namespace {

using Exchange = LinkTest;

TEST_F(Exchange, PutsTheAnswerIntoThePackage) {
  plays({[](auto& connection) { connection.answer(recordBytes(77, 0)); }});
  connects();
  EXPECT_EQ(link->sendMsg(&package), 0U);
  ASSERT_EQ(package.count(), 1U);
  EXPECT_EQ(package[0].cmd(), 77U);
  EXPECT_EQ(package[0].getUnsigned(MAX_TAG_VALUE), 0U);
}

TEST_F(Exchange, RepeatsTheRequestOnceWhenThePeerClosesDuringTheAnswer) {
  plays({[](auto& connection) {
           Message half = answerTo(connection.request(), recordBytes(77));
           half.resize(20);
           connection.send(half);
         },
         [](auto& connection) { connection.answer(recordBytes(77)); }});
  connects();
  EXPECT_EQ(link->sendMsg(&package), 0U);
  peer->join();
  const auto requests = peer->requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0], requests[1]);
  EXPECT_THAT(messages("ERR"),
              ElementsAre("It failed to receive v3 message head!",
                          "Failed to receive V3 message, error is Link has been severed"));
}

}  // namespace
}  // namespace qov::test
