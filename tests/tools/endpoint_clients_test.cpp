#include <qovpub/qov_message_package.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <vector>

#include "tests/support/sanitizers.h"
#include "tests/tools/endpoint_fixture.h"

namespace qov::test {
namespace {

constexpr std::size_t kLongestBody = 2097152 - 28;

class EndpointClients : public EndpointTest {
 protected:
  /// That all is well with the endpoint for somebody else.
  void expectOthersAreServed() const { EXPECT_EQ(client().exchange(request(77)), answer(77)); }

  void expectClosed(const EndpointClient& asking, const std::string& why) const {
    EXPECT_EQ(asking.receiveAll(), "");
    EXPECT_TRUE(endpoint.waitForError("connection 1: closed: " + why)) << endpoint.errors();
    expectOthersAreServed();
  }

  /// How many requests the endpoint has counted, from its answer.
  static std::uint64_t requestsIn(std::string answer) {
    CT7QPackageV3 package;
    package.decode(reinterpret_cast<unsigned char*>(answer.data()),
                   static_cast<unsigned int>(answer.size()));
    return package[0].getUnsigned(2);
  }
};

/// Lets this process and its children have `files` open files; false when they may not.
bool allowFiles(rlim_t files) {
  rlimit limit = {};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_cur >= files) {
    return true;
  }
  limit.rlim_cur = files;
  return files <= limit.rlim_max && ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

TEST_F(EndpointClients, AreServedInAnyNumberAtOnce) {
  // More than the 1024 that select() can watch.
  constexpr std::uint16_t kClients = 1500;
  if (!allowFiles(kClients + 200)) {
    GTEST_SKIP() << "this process may not have so many files open";
  }
  starts({"--quiet"});
  std::vector<EndpointClient> clients;
  for (std::uint16_t i = 0; i < kClients; ++i) {
    clients.push_back(client());
  }
  for (int round = 0; round < 2; ++round) {
    for (std::uint16_t i = 0; i < kClients; ++i) {
      clients[i].send(request(i));
    }
    for (std::uint16_t i = 0; i < kClients; ++i) {
      ASSERT_EQ(clients[i].receiveMessage(), answer(i));
    }
  }
  EXPECT_EQ(counted(),
            "connections 1500 requests 3000 replies 3000 rows 3000 ends 0 stored 0 refusals 0");
}

TEST_F(EndpointClients, ThatFindNoRoomAreServedWhenOthersHaveGone) {
  if (QOV_TEST_ASAN) {
    GTEST_SKIP() << "the sanitizer checks addresses with files of its own, and there are none left";
  }
  starts({"--quiet"});
  constexpr rlim_t kFiles = 20;
  const rlimit limit{kFiles, kFiles};
  ASSERT_EQ(::prlimit(endpoint.pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
  std::vector<EndpointClient> clients;
  for (rlim_t i = 0; i < 2 * kFiles; ++i) {
    clients.push_back(client());
    clients.back().send(request(1));
  }
  for (EndpointClient& each : clients) {
    EXPECT_EQ(each.receiveMessage(), answer(1)) << endpoint.errors();
    each.close();
  }
}

TEST_F(EndpointClients, MaySendARequestByteByByte) {
  starts();
  const EndpointClient slow = client();
  for (const char byte : request(1)) {
    EXPECT_TRUE(slow.isSilent());
    slow.send(std::string(1, byte));
  }
  EXPECT_EQ(slow.receiveMessage(), answer(1));
}

TEST_F(EndpointClients, MayPackRequestsIntoOneSegmentAndSplitThemAnywhere) {
  starts();
  const std::string both = request(1) + request(2) + message(3, lastRow());
  const std::string answers = answer(1) + answer(2) + message(3, endOf(kThings));
  for (std::size_t split = 0; split <= both.size(); ++split) {
    const EndpointClient packing = client();
    packing.send(both.substr(0, split));
    packing.send(both.substr(split));
    ASSERT_EQ(packing.receive(answers.size()), answers) << "split at " << split;
  }
}

TEST_F(EndpointClients, AreAnsweredInTheirOrderAndCountedOnce) {
  starts({"--quiet"});
  // Answers of 4096 bytes: when the kernel has no more room, it often has none for the first byte.
  const std::string row = cell(1, 1, std::string(4096 - 52, 'x'));
  client().exchange(message(1, record(kStoreTo + 0x2000, row)));
  std::string requests;
  std::string answers;
  for (std::uint16_t serial = 0; serial < 5000; ++serial) {
    const std::string next = record(kGetNextOf + 0x2000);
    requests += message(serial, next);
    answers += message(serial, record(kGetNextOf + 0x2000, row + cursor(1) + status(0)));
  }
  const EndpointClient eager(endpoint.port(), 4096);
  eager.send(requests);
  eager.closeSending();
  EXPECT_TRUE(eager.receiveAll() == answers);
  EXPECT_EQ(counted(),
            "connections 2 requests 5001 replies 5001 rows 5000 ends 0 stored 1 refusals 0");
}

TEST_F(EndpointClients, AreServedBetweenTheRequestsOfAnEagerOne) {
  starts({"--quiet"});
  // Few enough for any buffer, since nobody reads them at first.
  constexpr std::uint16_t kRequests = 300;
  std::string requests;
  for (std::uint16_t serial = 0; serial < kRequests; ++serial) {
    requests += request(serial);
  }
  const EndpointClient eager = client();
  const EndpointClient other = client();
  whileItIsStopped([&] {
    eager.send(requests);
    other.send(message(1, record(kCountsOf)));
  });
  EXPECT_LT(requestsIn(other.receiveMessage()), kRequests);
  EXPECT_EQ(eager.receive(kRequests * answer(1).size()).size(), kRequests * answer(1).size());
}

TEST_F(EndpointClients, MayVanishWithinARequest) {
  starts();
  EndpointClient vanishing = client();
  vanishing.send(request(1).substr(0, 33));
  vanishing.close();
  EXPECT_TRUE(endpoint.waitForError("connection 1: ended within a request"));
  expectOthersAreServed();
}

TEST_F(EndpointClients, MayVanishWithinAnAnswer) {
  starts({"--fault", "length:value=2097124,fill=true,connection=1"});
  EndpointClient vanishing = client();
  for (std::uint16_t serial = 0; serial < 50; ++serial) {
    vanishing.send(request(serial));
  }
  EXPECT_EQ(vanishing.receive(4), "UUUU");
  vanishing.close();
  EXPECT_TRUE(endpoint.waitForError("connection 1: lost within an answer"));
  expectOthersAreServed();
}

TEST_F(EndpointClients, ThatDoNotReadAreAskedToWaitAndCostLittle) {
  starts({"--quiet"});
  // All answers together are far more than the kernel keeps for a connection.
  constexpr std::uint16_t kRequests = 2000;
  const std::string row = cell(1, 1, std::string(60000, 'x'));
  client().exchange(message(1, record(kStoreTo + 0x2000, row)));
  std::string requests;
  for (std::uint16_t serial = 0; serial < kRequests; ++serial) {
    requests += message(serial, record(kGetNextOf + 0x2000));
  }
  const EndpointClient lazy = client();
  lazy.send(requests);
  for (int i = 0; i < 200; ++i) {
    expectOthersAreServed();
  }
  EXPECT_THAT(counted(), testing::Not(testing::HasSubstr("requests 2201 "))) << "all were answered";
  for (std::uint16_t serial = 0; serial < kRequests; ++serial) {
    const std::string whole =
        message(serial, record(kGetNextOf + 0x2000, row + cursor(1) + status(0)));
    ASSERT_TRUE(lazy.receiveMessage() == whole) << serial;
  }
  EXPECT_THAT(counted(), testing::HasSubstr("requests 2201 replies 2201 "));
}

TEST_F(EndpointClients, MaySendARequestOfTwoMebibytes) {
  starts();
  const std::string zeros(kLongestBody, '\0');
  EXPECT_EQ(client().exchange(message(1, zeros)), message(1, "", 4));
  expectOthersAreServed();
}

TEST_F(EndpointClients, AreClosedWithALongerRequest) {
  starts();
  const EndpointClient asking = client();
  asking.send(message(1, "").replace(24, 4, le(kLongestBody + 1, 4)));
  expectClosed(asking, "a message longer than 2097152 bytes");
}

TEST_F(EndpointClients, AreClosedWithAnotherMagic) {
  starts();
  const EndpointClient asking = client();
  asking.send("GET / HTTP/1.1\r\nHost: here\r\n\r\n");
  expectClosed(asking, "no V3 message");
}

TEST_F(EndpointClients, AreClosedWithAnotherVersion) {
  starts();
  const EndpointClient asking = client();
  asking.send(request(1).replace(4, 1, "\2"));
  expectClosed(asking, "no V3 message");
}

TEST_F(EndpointClients, AreAnsweredBeforeTheGarbageBehindTheirRequest) {
  // So long that much of it is still on its way when the endpoint sees the garbage, and closes
  // without having read all of that.
  starts({"--fault", "length:value=4194304,fill=true"});
  const EndpointClient asking(endpoint.port(), 4096);
  asking.send(request(1) + std::string(100000, 'x'));
  const std::string got = asking.receiveAll();
  EXPECT_EQ(got.size(), 28U + 4194304);
  EXPECT_EQ(got.substr(28, firstRow().size()), firstRow());
}

TEST_F(EndpointClients, MaySendANegativeLengthWhichIsNoBody) {
  starts();
  const EndpointClient asking = client();
  asking.send(message(1, "").replace(24, 4, le(~0U, 4)));
  EXPECT_EQ(asking.receiveMessage(), message(1, "", 4));
  EXPECT_EQ(asking.exchange(request(2)), answer(2));
}

}  // namespace
}  // namespace qov::test
