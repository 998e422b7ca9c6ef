#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>

#include "tests/link/exchange_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace qov::test {
namespace {

/// The port of this end of a connection.
std::uint16_t portOf(int socket) {
  sockaddr_in own{};
  socklen_t size = sizeof own;
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size);
  return ntohs(own.sin_port);
}

class Connection : public LinkTest {};

TEST_F(Connection, IsLoggedWhenItIsMade) {
  plays({answers});
  const TestLink made(peer.port());
  EXPECT_THAT(records(), ElementsAre("INFO 65612 " + connectedTo()));
}

TEST_F(Connection, IsLoggedWhenItCannotBeMade) {
  const TestLink made(peer.port());
  EXPECT_THAT(records(), ElementsAre("ERR 65611 " + notConnectedTo(), "ERR 65830 " + refused()));
}

TEST_F(Connection, TellsWhetherItWasMade) {
  connects();
  EXPECT_EQ(link->setupConnection(), -1);
  plays({answers});
  EXPECT_EQ(link->setupConnection(), 0);
}

TEST_F(Connection, IsTracedAsOperationsAre) {
  log.log().priority_mask(LM_TRACE, ACE_Log_Msg::PROCESS);
  { const TestLink made(peer.port()); }
  const std::string make = "CQOVLongSocket::CQOVLongSocket(const ACE_INET_Addr&, const Limits&)";
  const std::string setUp = "int CQOVLongSocket::setupConnection()";
  const std::string end = "CQOVLongSocket::~CQOVLongSocket()";
  EXPECT_THAT(messages("TRACE"), ElementsAre("enter " + make + "...", "enter " + setUp + "...",
                                             "leave " + setUp + ": NOK", "leave " + make + ": OK",
                                             "enter " + end + "...", "leave " + end + ": OK"));
}

TEST_F(Connection, EndsWithTheLink) {
  plays({[](auto& connection) { connection.ignoreAll(); }});
  connects();
  link.reset();
  peer.join();
  EXPECT_THAT(socketsTo(peer.port()), IsEmpty());
}

TEST_F(Connection, IsReplacedByANewOne) {
  plays({answers, answers});
  connects();
  EXPECT_EQ(link->setupConnection(), 0);
  EXPECT_EQ(socketsTo(peer.port()).size(), 1U);
  EXPECT_EQ(sends(), 0U);
}

TEST_F(Connection, HoldsNothingBackAndIsNotInherited) {
  plays({answers});
  connects();
  const auto sockets = socketsTo(peer.port());
  ASSERT_EQ(sockets.size(), 1U);
  int noDelay = 0;
  socklen_t size = sizeof noDelay;
  ::getsockopt(sockets[0], IPPROTO_TCP, TCP_NODELAY, &noDelay, &size);
  EXPECT_NE(noDelay, 0);
  EXPECT_EQ(::fcntl(sockets[0], F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(Connection, NeverIsOneToItself) {
  // A port that the system gives to connections, now free. They get these in turn, so that one of
  // many finds itself at the other end.
  plays({answers});
  connects();
  const auto sockets = socketsTo(peer.port());
  ASSERT_EQ(sockets.size(), 1U);
  const std::uint16_t port = portOf(sockets[0]);
  link.reset();
  log.log().priority_mask(0, ACE_Log_Msg::PROCESS);
  TestLink toNobody(port);
  int made = 0;
  for (int i = 0; i < 40000; ++i) {
    made += toNobody.setupConnection() == 0 ? 1 : 0;
  }
  EXPECT_EQ(made, 0);
}

TEST_F(Connection, WorksWithDescriptorsThatSelectCannotHold) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit before = limit;
  constexpr int kMany = 1100;
  if (limit.rlim_max < kMany + 100) {
    GTEST_SKIP() << "not enough descriptors allowed";
  }
  limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, kMany + 100);
  ::setrlimit(RLIMIT_NOFILE, &limit);
  std::vector<int> held;
  while (held.empty() || held.back() < kMany) {
    held.push_back(::dup(STDERR_FILENO));
    ASSERT_GE(held.back(), 0);
  }
  plays({answers});
  connects();
  const auto sockets = socketsTo(peer.port());
  EXPECT_EQ(sends(), 0U);
  for (const int fd : held) {
    ::close(fd);
  }
  ::setrlimit(RLIMIT_NOFILE, &before);
  ASSERT_EQ(sockets.size(), 1U);
  EXPECT_GT(sockets[0], FD_SETSIZE);
}

TEST_F(Connection, GivesUpInTimeWhenNobodyTakesIt) {
  // With a backlog of 0 the first connection fills the queue and the system answers no other.
  const QuietPort quiet;
  TestLink::Limits limits;
  limits.connect.set(0, 50000);
  const TestLink made(quiet.port(), limits);
  const std::string address = "127.0.0.1:" + std::to_string(quiet.port());
  EXPECT_THAT(records(),
              ElementsAre("ERR 65611 Failed to connect socket server, server ip is " + address,
                          "ERR 65830 Failed to connect to the management endpoint " + address +
                              ": Connection timed out"));
}

TEST_F(Connection, OfAPeerThatIsGoneRaisesNoSignal) {
  plays({[](PeerConnection&) {}});
  connects();
  peer.join();
  struct sigaction before {};
  struct sigaction deadly {};
  deadly.sa_handler = SIG_DFL;
  ::sigaction(SIGPIPE, &deadly, &before);
  const Message bytes(100);
  // The first one makes the peer say that it is gone; they go on until that has come.
  unsigned int result = 0;
  while (result == 0U) {
    result = link->sendMsg_i(bytes.data(), 100);
  }
  EXPECT_EQ(result, kSocketFailed);
  ::sigaction(SIGPIPE, &before, nullptr);
  EXPECT_THAT(records(), ElementsAre("ERR 65613 Failed to send V3 message, error is Broken pipe",
                                     "ERR 65611 " + notConnectedTo(), "ERR 65830 " + refused()));
}

TEST_F(Connection, TakesAShortSendForASend) {
  std::size_t read = 0;
  plays({[&](PeerConnection& connection) {
    // Reads all that comes, so that one who sends on does come to the end.
    Message part(1U << 20);
    for (ssize_t taken = 1; taken > 0; read += static_cast<std::size_t>(taken)) {
      taken = std::max<ssize_t>(::recv(connection.socket(), part.data(), part.size(), 0), 0);
    }
  }});
  connects(endless());
  holdsLittle();
  const Message large(32U << 20);
  EXPECT_EQ(link->sendMsg_i(large.data(), static_cast<unsigned int>(large.size())), 0U);
  EXPECT_THAT(records(), IsEmpty());
  link.reset();
  peer.join();
  EXPECT_GT(read, 0U);
  EXPECT_LT(read, large.size());
}

TEST_F(Connection, FailsToSendWhenNothingIsTakenInTime) {
  plays({readsNothing()});
  TestLink::Limits limits = endless();
  limits.send.set(0, 50000);
  connects(limits);
  EXPECT_TRUE(connected.waitFor());
  EXPECT_EQ(sendsUntilNothingIsTaken(), kSocketFailed);
  EXPECT_THAT(messages("ERR"), ElementsAre("Failed to send V3 message, error is Timer expired",
                                           notConnectedTo(), refused()));
}

TEST_F(Connection, TakesWhatItCanSendAtOnceWithoutAnyTime) {
  plays({answers});
  TestLink::Limits limits = endless();
  limits.send = ACE_Time_Value::zero;
  connects(limits);
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(peer.connections(), 1);
}

}  // namespace
}  // namespace qov::test
