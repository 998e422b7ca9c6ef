#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "tests/tools/endpoint_fixture.h"

namespace qov::test {
namespace {

class EndpointFault : public EndpointTest {
 protected:
  /// What a client gets that sends these bytes to an endpoint with the fault, and closes its side.
  std::string answersWith(const std::string& fault, const std::string& sent) {
    starts({"--fault", fault});
    const EndpointClient asking = client();
    asking.send(sent);
    asking.closeSending();
    return asking.receiveAll();
  }
  std::string answerWith(const std::string& fault) { return answersWith(fault, request(1)); }

  /// The answer with another value in one field of its head.
  static std::string answerWithField(std::size_t offset, const std::string& value) {
    return answer(1).replace(offset, value.size(), value);
  }

  static constexpr std::size_t kRet = 8;
  static constexpr std::size_t kSerial = 22;
  static constexpr std::size_t kLength = 24;

  /// Row 2 of table 7 without a status.
  const std::string cells_ = text(1, "first") + number(2, 77) + cursor(2);
  const std::uint64_t command_ = kGetNextOf + kThings;
};

TEST_F(EndpointFault, ClosesWithinTheHead) {
  EXPECT_EQ(answerWith("close:after=10"), answer(1).substr(0, 10));
  EXPECT_EQ(counted(), "connections 1 requests 1 replies 0 rows 0 ends 0 stored 0 refusals 0");
}

TEST_F(EndpointFault, ClosesWithinTheBody) {
  EXPECT_EQ(answerWith("close:after=30"), answer(1).substr(0, 30));
}

TEST_F(EndpointFault, ClosesBeforeTheFirstByteUnlessToldOtherwise) {
  EXPECT_EQ(answerWith("close"), "");
}

TEST_F(EndpointFault, ClosesBehindAnAnswerThatIsWholeAndCounts) {
  EXPECT_EQ(answersWith("close:after=1000", request(1) + request(2)), answer(1));
  EXPECT_EQ(counted(), "connections 1 requests 1 replies 1 rows 1 ends 0 stored 0 refusals 0");
}

TEST_F(EndpointFault, DelaysOneClientAndNoOther) {
  starts({"--fault", "delay:seconds=3600,connection=1"});
  const EndpointClient delayed = client();
  delayed.send(request(1));
  EXPECT_EQ(client().exchange(request(2)), answer(2));
  EXPECT_TRUE(delayed.isSilent());
}

TEST_F(EndpointFault, DelaysForAsLongAsItIsTold) {
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(answerWith("delay:seconds=0.2"), answer(1));
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(200));
  EXPECT_EQ(counted(), "connections 1 requests 1 replies 1 rows 1 ends 0 stored 0 refusals 0");
}

TEST_F(EndpointFault, SendsOneByteAtATime) {
  EXPECT_EQ(answersWith("drip", request(1) + request(2)), answer(1) + answer(2));
  EXPECT_EQ(counted(), "connections 1 requests 2 replies 2 rows 2 ends 0 stored 0 refusals 0");
}

TEST_F(EndpointFault, WaitsBetweenTwoSingleBytes) {
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(answerWith("drip:seconds=0.003"), answer(1));
  const auto pauses = static_cast<int>(answer(1).size()) - 1;
  EXPECT_GE(std::chrono::steady_clock::now() - before, pauses * std::chrono::milliseconds(3));
}

TEST_F(EndpointFault, AnswersWithAnotherSerial) {
  EXPECT_EQ(answerWith("serial"), answerWithField(kSerial, le(2, 2)));
  EXPECT_EQ(answerWith("serial:add=65535"), answerWithField(kSerial, le(0, 2)));
  EXPECT_EQ(counted(), "connections 2 requests 2 replies 2 rows 0 ends 0 stored 0 refusals 0");
}

TEST_F(EndpointFault, AnswersWithAResult) {
  EXPECT_EQ(answerWith("ret:value=4294967295"), answerWithField(kRet, le(0xFFFFFFFF, 4)));
  EXPECT_EQ(counted(), "connections 1 requests 1 replies 1 rows 0 ends 0 stored 0 refusals 1");
}

TEST_F(EndpointFault, ClaimsALengthThatIsNotThere) {
  const auto body = answer(1).size() - 28;
  EXPECT_EQ(answerWith("length:add=-3"), answerWithField(kLength, le(body - 3, 4)));
  EXPECT_EQ(answerWith("length:add=3"), answerWithField(kLength, le(body + 3, 4)));
  EXPECT_EQ(answerWith("length:value=0"), answerWithField(kLength, le(0, 4)));
  EXPECT_EQ(answerWith("length:value=-1"), answerWithField(kLength, le(0xFFFFFFFF, 4)));
  EXPECT_EQ(answerWith("length:value=-2147483648"), answerWithField(kLength, le(1U << 31, 4)));
  EXPECT_EQ(answerWith("length:value=2097125"), answerWithField(kLength, le(2097125, 4)));
  EXPECT_EQ(answerWith("length:value=4294967295"), answerWithField(kLength, le(0xFFFFFFFF, 4)));
}

TEST_F(EndpointFault, ClaimsALengthAndSendsSoMuch) {
  const auto body = answer(1).size() - 28;
  const std::string larger = answerWithField(kLength, le(body + 3, 4)) + std::string(3, '\0');
  EXPECT_EQ(answersWith("length:add=3,fill=true", request(1)), larger);
  const std::string smaller = answerWithField(kLength, le(body - 3, 4));
  EXPECT_EQ(answerWith("length:add=-3,fill=true"), smaller.substr(0, smaller.size() - 3));
  EXPECT_EQ(answerWith("length:value=0,fill=true"), message(1, ""));
  EXPECT_EQ(answerWith("length:value=-1,fill=true"), message(1, "").replace(24, 4, le(~0U, 4)));
}

TEST_F(EndpointFault, SendsMoreThanClientsHaveRoomFor) {
  std::string whole = answerWithField(kLength, le(2097125, 4));
  whole.resize(28 + 2097125);
  // Compared first, since a difference would be printed.
  EXPECT_TRUE(answerWith("length:value=2097125,fill=true") == whole);
}

TEST_F(EndpointFault, AnswersWithGarbageMagic) {
  EXPECT_EQ(answerWith("magic"), answerWithField(0, "RABG"));
  EXPECT_EQ(answerWith("magic:value=0"), answerWithField(0, le(0, 4)));
}

TEST_F(EndpointFault, AnswersWithTwoRecordsOrNone) {
  EXPECT_EQ(answerWith("two-records"), message(1, firstRow() + firstRow()));
  EXPECT_EQ(counted(), "connections 1 requests 1 replies 1 rows 2 ends 0 stored 0 refusals 0");
  EXPECT_EQ(answerWith("no-record"), message(1, ""));
  EXPECT_EQ(counted(), "connections 2 requests 2 replies 2 rows 2 ends 0 stored 0 refusals 0");
}

TEST_F(EndpointFault, AnswersWithoutAStatus) {
  EXPECT_EQ(answerWith("no-status"), message(1, record(command_, cells_)));
  EXPECT_EQ(answersWith("no-status", message(1, lastRow())), message(1, record(command_)));
}

TEST_F(EndpointFault, AnswersWithATextForAStatus) {
  EXPECT_EQ(answerWith("text-status"), message(1, record(command_, cells_ + text(4095, "row"))));
}

TEST_F(EndpointFault, AnswersWithAnotherStatus) {
  EXPECT_EQ(answerWith("status"), message(1, record(command_, cells_ + status(7))));
  EXPECT_EQ(answerWith("status:value=1"), message(1, record(command_, cells_ + status(1))));
}

TEST_F(EndpointFault, HasRoomInTheLongestRow) {
  const std::string row = cell(1, 1, std::string(65535 - 24 - 4, 'x'));
  const std::uint64_t large = 1ULL << 62;
  starts({"--fault", "text-status:request=2", "--fault",
          "status:request=3,value=" + std::to_string(large)});
  const EndpointClient asking = client();
  asking.exchange(message(1, record(kStoreTo + 0x2000, row)));
  const std::string next = message(2, record(kGetNextOf + 0x2000));
  EXPECT_EQ(asking.exchange(next),
            message(2, record(kGetNextOf + 0x2000, row + cursor(1) + text(4095, "row"))));
  EXPECT_EQ(asking.exchange(next),
            message(2, record(kGetNextOf + 0x2000, row + cursor(1) + cell(4095, 6, le(large, 8)))));
}

TEST_F(EndpointFault, NeverEndsAWalk) {
  EXPECT_EQ(answersWith("no-end", message(1, lastRow()) + message(2, firstRow())),
            message(1, firstRow()) + message(2, lastRow()));
  EXPECT_EQ(answersWith("no-end", message(1, record(kGetNextOf + kNothing))),
            message(1, record(kGetNextOf + kNothing, cursor(1) + status(0))));
  EXPECT_EQ(counted(), "connections 2 requests 3 replies 3 rows 3 ends 0 stored 0 refusals 0");
}

TEST_F(EndpointFault, NeverAnswersAndStaysConnected) {
  starts({"--fault", "silent:connection=1"});
  const EndpointClient silent = client();
  silent.send(request(1) + request(2));
  EXPECT_EQ(client().exchange(request(3)), answer(3));
  EXPECT_TRUE(endpoint.waitForError("connection 1 request 2"));
  EXPECT_TRUE(silent.isSilent());
  EXPECT_TRUE(waitUntil([&] {
    return counted() == "connections 2 requests 3 replies 1 rows 1 ends 0 stored 0 refusals 0";
  }));
}

/// Whether somebody else can bind to a port that nobody listens on.
bool canBeTaken(std::uint16_t port) {
  const int taker = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  ::setsockopt(taker, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool taken =
      ::bind(taker, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  ::close(taker);
  return taken;
}

TEST_F(EndpointFault, RefusesConnectionsAndKeepsItsPort) {
  starts({"--fault", "refuse:seconds=3600,connection=2"});
  const EndpointClient before = client();
  const EndpointClient refused = client();
  refused.send(request(1));
  EXPECT_EQ(refused.receiveAll(), "");
  EXPECT_FALSE(EndpointClient(endpoint.port()).connected());
  EXPECT_FALSE(canBeTaken(endpoint.port()));
  EXPECT_EQ(before.exchange(request(2)), answer(2));
}

TEST_F(EndpointFault, AcceptsConnectionsAgainAfterATimeOfRefusal) {
  starts({"--fault", "refuse:seconds=0.1,count=1"});
  const EndpointClient refused = client();
  refused.send(request(1));
  EXPECT_EQ(refused.receiveAll(), "");
  EXPECT_TRUE(waitUntil([&] {
    const EndpointClient next(endpoint.port());
    return next.connected() && next.exchange(request(2)) == answer(2);
  }));
}

TEST_F(EndpointFault, AcceptsConnectionsAgainAfterTwoTimesOfRefusalThatOverlap) {
  starts({"--fault", "refuse:seconds=0.1,count=2"});
  const EndpointClient first = client();
  const EndpointClient second = client();
  whileItIsStopped([&] {
    first.send(request(1));
    second.send(request(1));
  });
  EXPECT_EQ(first.receiveAll() + second.receiveAll(), "");
  EXPECT_TRUE(waitUntil([&] { return EndpointClient(endpoint.port()).connected(); }));
  EXPECT_EQ(client().exchange(request(2)), answer(2));
}

TEST_F(EndpointFault, MeetsAConnectionThatIsAccepted) {
  starts({"--fault", "close:connection=2,request=0"});
  const EndpointClient first = client();
  EXPECT_EQ(client().receiveAll(), "");
  EXPECT_EQ(first.exchange(request(1)), answer(1));
}

TEST_F(EndpointFault, RefusesFromTheMomentOfAConnectionOn) {
  starts({"--fault", "refuse:seconds=3600,request=0"});
  EXPECT_EQ(client().receiveAll(), "");
  EXPECT_FALSE(EndpointClient(endpoint.port()).connected());
}

TEST_F(EndpointFault, MeetsOneRequestOfOneConnection) {
  starts({"--fault", "no-record:connection=2,request=2"});
  for (const std::string& second : {answer(2), message(2, ""), answer(2)}) {
    const EndpointClient asking = client();
    EXPECT_EQ(asking.exchange(request(1)), answer(1));
    EXPECT_EQ(asking.exchange(request(2)), second);
    EXPECT_EQ(asking.exchange(request(3)), answer(3));
  }
}

TEST_F(EndpointFault, MeetsAsManyRequestsAsItIsToldInAll) {
  starts({"--fault", "no-record:count=2"});
  EXPECT_EQ(client().exchange(request(1)), message(1, ""));
  const EndpointClient second = client();
  EXPECT_EQ(second.exchange(request(2)), message(2, ""));
  EXPECT_EQ(second.exchange(request(3)), answer(3));
}

TEST_F(EndpointFault, GivesWayToTheOneBeforeIt) {
  const std::string scenario = R"({"faults":[{"action":"no-record","request":1}]})";
  starts({"--fault", "serial:request=1", "--fault", "serial:request=2", "--scenario",
          endpoint.file("scenario.json", scenario)});
  const EndpointClient asking = client();
  EXPECT_EQ(asking.exchange(request(1)), message(1, ""));
  EXPECT_EQ(asking.exchange(request(1)), answerWithField(kSerial, le(2, 2)));
}

/// One request of each kind of fault that leaves the connection as it is, and one that does not.
constexpr const char* kEveryKind = R"({"faults":[
  {"action":"serial","request":1}, {"action":"ret","value":9,"request":2},
  {"action":"length","add":5,"fill":true,"request":3}, {"action":"magic","request":4},
  {"action":"two-records","request":5}, {"action":"no-record","request":6},
  {"action":"no-status","request":7}, {"action":"text-status","request":8},
  {"action":"status","request":9}, {"action":"no-end","request":10},
  {"action":"drip","request":11}, {"action":"delay","seconds":0.01,"request":12},
  {"action":"silent","request":13}, {"action":"length","value":-1,"request":14},
  {"action":"close","after":40,"request":15}]})";

TEST_F(EndpointFault, IsTheSameBytesInEveryRun) {
  std::string sent;
  for (std::uint16_t serial = 1; serial <= 20; ++serial) {
    sent += serial % 5 == 0 ? message(serial, lastRow()) : request(serial);
  }
  std::string first;
  for (int run = 0; run < 2; ++run) {
    starts({"--scenario", endpoint.file("scenario.json", kEveryKind)});
    const EndpointClient asking = client();
    asking.send(sent);
    const std::string got = asking.receiveAll();
    first = run == 0 ? got : first;
    EXPECT_EQ(got, first);
  }
  // It reached the last fault: 40 bytes of the end mark of a walk.
  EXPECT_EQ(first.substr(first.size() - 40), message(15, endOf(kThings)).substr(0, 40));
}

}  // namespace
}  // namespace qov::test
