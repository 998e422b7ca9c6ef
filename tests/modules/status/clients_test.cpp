// Clients that want too much, nothing, or something else.
#include <deque>

#include "tests/modules/status/status_fixture.h"

namespace qov::test {
namespace {

constexpr std::size_t kMostClients = 8;
constexpr std::size_t kLongestRequest = 4096;
const nlohmann::json kList{{"request", "modules"}};

class StatusClients : public StatusTest {
 protected:
  /// As many as are served at once.
  void connectAll() {
    while (clients.size() < kMostClients) {
      clients.push_back(client());
      clients.back().ask(kList);
    }
  }

  std::deque<StatusClient> clients;
};

TEST_F(StatusClients, OneMoreThanAreServedIsClosed) {
  startsWith();
  connectAll();
  EXPECT_TRUE(client().isClosed());
  EXPECT_EQ(clients.front().ask({{"request", "status"}})["clients"]["tooMany"], 1);
}

TEST_F(StatusClients, AClientThatGoesMakesRoom) {
  startsWith();
  connectAll();
  clients.pop_front();
  // The agent learns of both in one turn at the most; the next turn finds room.
  EXPECT_TRUE(waitUntil([&] {
    StatusClient next = client();
    next.send(kList.dump() + "\n");
    return !next.isClosed();
  }));
}

TEST_F(StatusClients, AClientThatDoesNotReadIsDroppedAndOthersAreServedMeanwhile) {
  configure("ClientSeconds=1\n");
  startsWith();
  StatusClient stuck = client();
  stuck.fill("{\"request\":\"status\"}\n");
  EXPECT_TRUE(countReaches("accepted", 2));
  EXPECT_TRUE(countReaches("tooSlow", 1));
}

TEST_F(StatusClients, AClientThatDoesNotGoOnIsDropped) {
  configure("ClientSeconds=1\n");
  startsWith();
  StatusClient idle = client();
  StatusClient slow = client();
  slow.send("{\"request\":");
  EXPECT_TRUE(idle.isClosed());
  EXPECT_TRUE(slow.isClosed());
  EXPECT_TRUE(countReaches("tooSlow", 2));
}

TEST_F(StatusClients, WhatIsNoRequestEndsTheConnection) {
  startsWith();
  const std::vector<std::string> inputs{"\n",
                                        "status\n",
                                        "[1]\n",
                                        "7\n",
                                        "{}\n",
                                        "{\"request\":1}\n",
                                        "{\"request\":\"status\"}x\n",
                                        std::string(4000, '[') + "\n",
                                        std::string("\0\xff\x80\n", 4)};
  for (const std::string& input : inputs) {
    StatusClient wrong = client();
    wrong.send(input);
    EXPECT_TRUE(wrong.isClosed()) << input;
  }
  EXPECT_EQ(count("malformed"), inputs.size());
}

TEST_F(StatusClients, ARequestOfTheLongestLengthIsServedAndALongerOneIsNot) {
  startsWith();
  const std::string request = kList.dump();
  const std::string longest = request + std::string(kLongestRequest - request.size(), ' ');
  StatusClient within = client();
  within.send(longest + "\n");
  EXPECT_TRUE(within.receive().contains("modules"));
  StatusClient beyond = client();
  beyond.send(longest + " \n");
  EXPECT_TRUE(beyond.isClosed());
  EXPECT_EQ(count("malformed"), 1);
}

TEST_F(StatusClients, TheAgentStopsWithClientsConnected) {
  configure("ClientSeconds=3600\n");
  startsWith({"chatter"});
  connectAll();
  clients[1].send("{\"request\":");
  clients[2].fill("{\"request\":\"status\"}\n");
  stopsInOrder();
  EXPECT_TRUE(clients[0].isClosed());
  EXPECT_TRUE(clients[1].isClosed());
}

}  // namespace
}  // namespace qov::test
