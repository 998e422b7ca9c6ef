#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "tests/tools/endpoint_fixture.h"

namespace qov::test {
namespace {

using testing::HasSubstr;

class EndpointRun : public EndpointTest {
 protected:
  Ending run(const std::vector<std::string>& arguments) { return endpoint.run(arguments); }
  void expectUsage(const std::vector<std::string>& arguments, const std::string& why) {
    EXPECT_EQ(run(arguments).exitStatus, 2) << arguments[0];
    const std::string errors = endpoint.errors();
    EXPECT_THAT(errors, testing::StartsWith("qov-endpoint: "));
    EXPECT_THAT(errors, HasSubstr(why));
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
    EXPECT_EQ(endpoint.output(), "");
  }
  /// The codec's lines included, they are some 80 KiB.
  void servesAndStopsWithMoreErrorsThanAnyBufferHolds() {
    starts({"--verbose"});
    const EndpointClient asking = client();
    for (std::uint16_t serial = 1; serial <= 1000; serial += 2) {
      ASSERT_EQ(asking.exchange(request(serial)), answer(serial));
      const auto next = static_cast<std::uint16_t>(serial + 1);
      ASSERT_EQ(asking.exchange(message(next, "bad")), message(next, "", 4));
    }
    EXPECT_EQ(endpoint.end(SIGTERM).exitStatus, 0);
  }
};

TEST_F(EndpointRun, SaysEverythingWhenAskedForHelp) {
  EXPECT_EQ(run({"--help"}).exitStatus, 0);
  for (const char* said :
       {"--address",  "--port",      "--wait",    "--grace",   "--tables",     "--counts",
        "--scenario", "--fault",     "--quiet",   "--verbose", "listening on", "Exit status: 0 ",
        "close ",     "delay ",      "drip ",     "serial ",   "ret ",         "length ",
        "magic ",     "two-records", "no-record", "no-status", "text-status",  "status ",
        "no-end",     "refuse ",     "silent "}) {
    EXPECT_THAT(endpoint.output(), HasSubstr(said));
  }
}

TEST_F(EndpointRun, EndsWithOneWhenHelpCannotBeWritten) {
  ASSERT_EQ(::symlink("/dev/full", endpoint.path("stdout").c_str()), 0);
  EXPECT_EQ(run({"--help"}).exitStatus, 1);
  EXPECT_EQ(endpoint.errors(), "qov-endpoint: the help cannot be written\n");
}

TEST_F(EndpointRun, RefusesWhatItDoesNotKnow) {
  expectUsage({"--bogus"}, "--bogus");
  expectUsage({"stray"}, "stray");
  expectUsage({"--port"}, "--port");
  expectUsage({"--port", "65536"}, "--port: not a number from 0 to 65535: 65536");
  expectUsage({"--port", "x"}, "--port");
  expectUsage({"--address", "localhost"}, "not an IPv4 or IPv6 address: localhost");
  expectUsage({"--address", "[127.0.0.1]"}, "not an IPv4 or IPv6 address: [127.0.0.1]");
  expectUsage({"--address", "[::1"}, "not an IPv4 or IPv6 address: [::1");
  expectUsage({"--address", "a\nb"}, "a\\x0ab (--help says more)");
  expectUsage({"--fault", "x"}, "no action is named");
  expectUsage({"--quiet", "--verbose"}, "excludes");
  for (const char* option : {"--tables", "--counts", "--scenario"}) {
    expectUsage({"--port", "0", option, ""}, std::string(option) + ": no file is named");
  }
  for (const char* option : {"--port", "--wait", "--grace"}) {
    expectUsage({option, ""}, std::string(option) + ": not a number from 0 to 65535");
  }
}

TEST_F(EndpointRun, ListensOnTheAddressItIsGiven) {
  starts({"--address", "127.0.0.1"});
  EXPECT_EQ(endpoint.output(), "listening on 127.0.0.1:" + std::to_string(endpoint.port()) + "\n");
  EXPECT_EQ(client().exchange(request(1)), answer(1));
}

TEST_F(EndpointRun, ListensOnAnIpv6Address) {
  if (!hasIpv6Loopback()) {
    GTEST_SKIP() << "this machine has no address ::1";
  }
  for (const std::string address : {"::1", "[::1]", "0:0::1"}) {
    endpoint.usePort(0);
    endpoint.expectHost("[::1]");
    starts({"--address", address});
    EXPECT_EQ(EndpointClient::byIpv6(endpoint.port()).exchange(request(1)), answer(1)) << address;
    EXPECT_FALSE(EndpointClient(endpoint.port()).connected()) << "127.0.0.1 is another address";
  }
}

TEST_F(EndpointRun, ListensOnAllAddressesOfBothKinds) {
  if (!hasIpv6Loopback()) {
    GTEST_SKIP() << "this machine has no address ::1";
  }
  endpoint.expectHost("[::]");
  starts({"--address", "::"});
  EXPECT_EQ(EndpointClient::byIpv6(endpoint.port()).exchange(request(1)), answer(1));
  EXPECT_EQ(client().exchange(request(1)), answer(1));
}

TEST_F(EndpointRun, ServesWhereItMayHaveFewFilesOpen) {
  endpoint.limitFiles(100);
  starts();
  EXPECT_EQ(client().exchange(request(1)), answer(1));
}

TEST_F(EndpointRun, FailsOnAnAddressOfAnotherMachine) {
  EXPECT_EQ(run({"--address", "192.0.2.1", "--port", "0"}).exitStatus, 1);
  EXPECT_THAT(endpoint.errors(), HasSubstr("qov-endpoint: cannot bind to 192.0.2.1:"));
}

/// Has a port of this machine until it goes.
class PortHolder {
 public:
  PortHolder() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* name = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(::bind(socket_, name, size), 0);
    EXPECT_EQ(::listen(socket_, 1), 0);
    EXPECT_EQ(::getsockname(socket_, name, &size), 0);
    port_ = ntohs(address.sin_port);
  }
  ~PortHolder() { release(); }
  PortHolder(const PortHolder&) = delete;
  PortHolder& operator=(const PortHolder&) = delete;

  std::uint16_t port() const { return port_; }
  void release() {
    if (socket_ >= 0) {
      ::close(socket_);
      socket_ = -1;
    }
  }

 private:
  int socket_;
  std::uint16_t port_ = 0;
};

TEST_F(EndpointRun, FailsOnAPortThatStaysInUse) {
  const PortHolder holder;
  const std::string port = std::to_string(holder.port());
  EXPECT_EQ(run({"--port", port, "--wait", "0"}).exitStatus, 1);
  EXPECT_THAT(endpoint.errors(),
              HasSubstr("cannot bind to 127.0.0.1:" + port + ": Address already"));
}

TEST_F(EndpointRun, WaitsForAPortThatIsInUse) {
  PortHolder holder;
  std::thread releasing([&] {
    EXPECT_TRUE(endpoint.waitForError("port " + std::to_string(holder.port()) + " is in use"));
    holder.release();
  });
  endpoint.usePort(holder.port());
  EXPECT_TRUE(endpoint.start({"--wait", "60"})) << endpoint.errors();
  releasing.join();
}

TEST_F(EndpointRun, StopsWithEitherSignal) {
  for (const int signum : {SIGTERM, SIGINT}) {
    starts();
    const EndpointClient idle = client();
    EXPECT_EQ(idle.exchange(request(1)), answer(1));
    EXPECT_EQ(endpoint.end(signum).exitStatus, 0);
    EXPECT_EQ(idle.receiveAll(), "");
  }
}

TEST_F(EndpointRun, FinishesTheAnswerOnItsWayBeforeItStops) {
  // A signal that comes late finds the second answer on its way, and nobody sees that.
  starts({"--fault", "delay:seconds=0.3,request=1", "--fault", "delay:seconds=3600,request=2"});
  EndpointClient asking = client();
  asking.send(request(1) + request(2));
  EXPECT_TRUE(endpoint.waitForError("fault delay"));
  endpoint.send(SIGTERM);
  EXPECT_EQ(asking.receiveAll(), answer(1));
  asking.close();
  EXPECT_EQ(endpoint.waitForEnd().exitStatus, 0);
  EXPECT_THAT(counted(), HasSubstr("replies 1 rows 1 ends 0 stored 0 refusals 0"));
}

TEST_F(EndpointRun, StopsAtOnceWithASecondSignal) {
  starts({"--fault", "delay:seconds=3600", "--grace", "3600"});
  const EndpointClient asking = client();
  asking.send(request(1));
  EXPECT_TRUE(endpoint.waitForError("fault delay"));
  const EndpointClient other = client();
  endpoint.send(SIGTERM);
  // It has begun to stop.
  EXPECT_EQ(other.receiveAll(), "");
  EXPECT_EQ(endpoint.end(SIGTERM).exitStatus, 0);
  EXPECT_EQ(asking.receiveAll(), "");
}

TEST_F(EndpointRun, StopsWithoutTheAnswerOnItsWayWhenItsTimeIsOver) {
  starts({"--fault", "delay:seconds=3600", "--grace", "0"});
  const EndpointClient asking = client();
  asking.send(request(1));
  EXPECT_TRUE(endpoint.waitForError("fault delay"));
  EXPECT_EQ(endpoint.end(SIGTERM).exitStatus, 0);
  EXPECT_EQ(asking.receiveAll(), "");
}

TEST_F(EndpointRun, IsStartedAgainOnItsPortAfterItWasKilled) {
  starts();
  const std::uint16_t port = endpoint.port();
  const EndpointClient cutOff = client();
  EXPECT_EQ(cutOff.exchange(request(1)), answer(1));
  cutOff.send(request(2).substr(0, 30));
  EXPECT_EQ(endpoint.end(SIGKILL).signal, SIGKILL);
  starts();
  EXPECT_EQ(endpoint.port(), port);
  EXPECT_EQ(client().exchange(request(3)), answer(3));
}

TEST_F(EndpointRun, HasCountedAllThatClientsHaveSeenWhenItIsKilled) {
  std::uint16_t seen = 0;
  for (int run = 0; run < 3; ++run) {
    starts({"--quiet"});
    const EndpointClient asking = client();
    for (int i = 0; i < 50; ++i) {
      ++seen;
      EXPECT_EQ(asking.exchange(request(seen)), answer(seen));
    }
    endpoint.end(SIGKILL);
    const std::string counts = std::to_string(seen);
    EXPECT_EQ(counted(), "connections " + std::to_string(run + 1) + " requests " + counts +
                             " replies " + counts + " rows " + counts +
                             " ends 0 stored 0 refusals 0");
  }
}

TEST_F(EndpointRun, WritesCountsInLinesOfFixedWidth) {
  starts();
  EXPECT_THAT(readFile(endpoint.path("counts")),
              testing::StartsWith("connections 0                   \nrequests 0                   "
                                  "\nreplies 0 "));
  const auto size = readFile(endpoint.path("counts")).size();
  const EndpointClient asking = client();
  for (std::uint16_t serial = 1; serial <= 12; ++serial) {
    asking.exchange(request(serial));
  }
  const std::string counts = readFile(endpoint.path("counts"));
  EXPECT_EQ(counts.size(), size);
  EXPECT_EQ(std::count(counts.begin(), counts.end(), '\n'), 7);
}

TEST_F(EndpointRun, GoesOnFromTheCountsThatAreThere) {
  starts();
  client().exchange(message(1, record(kCountsOf)));
  endpoint.end(SIGTERM);
  starts();
  EXPECT_EQ(client().exchange(message(1, record(kCountsOf))),
            message(1, record(kCountsOf, number(1, 2) + number(2, 2) + number(3, 1) + number(4, 0) +
                                             number(5, 0) + number(6, 0) + number(7, 0))));
}

TEST_F(EndpointRun, LeavesAFileAloneThatHoldsNoCounts) {
  const std::string file = endpoint.file("precious", "connections many\n");
  EXPECT_EQ(run({"--port", "0", "--counts", file}).exitStatus, 1);
  EXPECT_THAT(endpoint.errors(), HasSubstr(file + ": holds something else than counts"));
  EXPECT_EQ(readFile(file), "connections many\n");
}

TEST_F(EndpointRun, FailsOnACountsFileThatCannotBeMade) {
  EXPECT_EQ(run({"--port", "0", "--counts", endpoint.path("missing/counts")}).exitStatus, 1);
  EXPECT_THAT(endpoint.errors(), HasSubstr("missing/counts: No such file"));
}

TEST_F(EndpointRun, KeepsTheCountsApartFromAStandardErrorThatIsClosed) {
  endpoint.closeErrors();
  starts({"--verbose"});
  const EndpointClient asking = client();
  for (std::uint16_t serial = 1; serial <= 10; ++serial) {
    EXPECT_EQ(asking.exchange(request(serial)), answer(serial));
  }
  const std::string counts = readFile(endpoint.path("counts"));
  EXPECT_THAT(counts, testing::StartsWith("connections 1 "));
  EXPECT_EQ(std::count(counts.begin(), counts.end(), '\n'), 7) << counts;
}

TEST_F(EndpointRun, ServesAndStopsWhileNobodyReadsThePipeOfItsErrors) {
  const std::string pipe = endpoint.path("stderr");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const int unread = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_EQ(::fcntl(unread, F_SETPIPE_SZ, 4096), 4096);
  servesAndStopsWithMoreErrorsThanAnyBufferHolds();
  ::close(unread);
}

TEST_F(EndpointRun, ServesAndStopsWhileNobodyReadsTheTerminalOfItsErrors) {
  const int unread = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (unread < 0 || ::grantpt(unread) != 0 || ::unlockpt(unread) != 0) {
    GTEST_SKIP() << "this machine gives no terminal";
  }
  ASSERT_EQ(::symlink(::ptsname(unread), endpoint.path("stderr").c_str()), 0);
  servesAndStopsWithMoreErrorsThanAnyBufferHolds();
  ::close(unread);
}

TEST_F(EndpointRun, TellsNothingOrEveryExchange) {
  starts({"--quiet"});
  const EndpointClient quiet = client();
  EXPECT_EQ(quiet.exchange(message(1, "bad")), message(1, "", 4));
  EXPECT_EQ(quiet.exchange(request(2)), answer(2));
  EXPECT_EQ(endpoint.errors(), "");
  starts();
  EXPECT_EQ(client().exchange(request(1)), answer(1));
  EXPECT_EQ(endpoint.errors(), "");
  starts({"--verbose"});
  EXPECT_EQ(client().exchange(request(1)), answer(1));
  EXPECT_EQ(endpoint.errors(),
            "connection 1 request 1: 38 bytes, operation 1 table 7; result 0, records 1\n");
}

}  // namespace
}  // namespace qov::test
