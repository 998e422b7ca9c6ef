#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "tests/process/agent_test.h"

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace qov::test {
namespace {

/// A service manager's socket.
class ManagersSocket {
 public:
  /// At `name`, as NOTIFY_SOCKET has it.
  explicit ManagersSocket(const std::string& name)
      : descriptor_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path);
    if (name.front() == '@') {
      address.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    if (::bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), size) != 0) {
      throw std::runtime_error("cannot bind " + name);
    }
  }
  ~ManagersSocket() { ::close(descriptor_); }
  ManagersSocket(const ManagersSocket&) = delete;
  ManagersSocket& operator=(const ManagersSocket&) = delete;

  /// The next datagram; empty when none comes within a generous limit.
  std::string next() {
    constexpr int kLimit = 60000;  // milliseconds
    pollfd ready{descriptor_, POLLIN, 0};
    if (::poll(&ready, 1, kLimit) != 1) {
      return {};
    }
    std::array<char, 1024> text{};
    const ssize_t size = ::recv(descriptor_, text.data(), text.size(), 0);
    return {text.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
  }

  bool isEmpty() {
    pollfd ready{descriptor_, POLLIN, 0};
    return ::poll(&ready, 1, 0) == 0;
  }

  /// Waits for a "WATCHDOG=1", past all others; false when none comes.
  bool nextSignOfLife() {
    std::string text = next();
    while (!text.empty() && text != "WATCHDOG=1") {
      text = next();
    }
    return !text.empty();
  }

  /// The next one that is no "WATCHDOG=1".
  std::string nextNews() {
    std::string text = next();
    while (text == "WATCHDOG=1") {
      text = next();
    }
    return text;
  }

 private:
  const int descriptor_;
};

constexpr const char* kReady = "READY=1\nSTATUS=modules that run: 1";

class ServiceManagerTest : public AgentTest {
 protected:
  ServiceManagerTest() { agent.setEnvironment("NOTIFY_SOCKET", name_); }

  /// With a watchdog of so many microseconds.
  void startsWatched(const std::string& module, const std::string& patience) {
    agent.setEnvironment("WATCHDOG_USEC", patience);
    starts({module});
    EXPECT_EQ(kReady, socket_.next());
  }

  /// What is sent until the agent stops, which this has it do.
  std::string restOfTheNews() {
    agent.send(SIGTERM);
    const std::string first = socket_.next();
    hasEndedInOrder(agent.waitForEnd());
    return first;
  }

  const std::string name_ = (agent.root().path() / "notify").string();
  ManagersSocket socket_{name_};
};

TEST_F(ServiceManagerTest, IsToldThatTheModulesStandAndThatTheyStop) {
  starts({"chatter"});
  EXPECT_EQ(kReady, socket_.next());
  agent.send(SIGTERM);
  EXPECT_EQ("STOPPING=1\nSTATUS=stops its modules", socket_.next());
  hasEndedInOrder(agent.waitForEnd());
}

TEST_F(ServiceManagerTest, IsToldWhenTheSettingsAreReadAgainAndWhenThatIsDone) {
  const auto now = [] {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000000LL + time.tv_nsec / 1000;
  };
  starts({"chatter"});
  EXPECT_EQ(kReady, socket_.next());
  const long long before = now();
  agent.send(SIGUSR1);
  const std::string reloading = socket_.next();
  const std::string begin = "RELOADING=1\nMONOTONIC_USEC=";
  ASSERT_THAT(reloading, StartsWith(begin));
  const long long when = std::atoll(reloading.c_str() + begin.size());
  EXPECT_LE(before, when);
  EXPECT_GE(now(), when);
  EXPECT_EQ(kReady, socket_.next());
  EXPECT_THAT(agent.log(), HasSubstr(kReloaded));
  stopsInOrder();
}

TEST_F(ServiceManagerTest, IsReachedAtANameThatIsNoFiles) {
  const std::string name = "@" + name_;
  ManagersSocket abstract(name);
  agent.setEnvironment("NOTIFY_SOCKET", name);
  starts({"chatter"});
  EXPECT_EQ(kReady, abstract.next());
  stopsInOrder();
}

TEST_F(ServiceManagerTest, IsNotToldOfAStartThatFails) {
  agent.useModules({"bad"});
  agent.start({"-n"});
  hasExited(agent.waitForEnd(), 1);
  EXPECT_TRUE(socket_.isEmpty());
}

TEST_F(ServiceManagerTest, ThatIsGoneIsLoggedOnceAndHoldsNothingUp) {
  const std::string gone = name_ + "_gone";
  agent.setEnvironment("NOTIFY_SOCKET", gone);
  starts({"chatter"});
  agent.send(SIGUSR1);
  EXPECT_TRUE(agent.waitForLog(kReloaded));
  stopsInOrder();
  const std::string log = agent.log();
  EXPECT_THAT(log, HasSubstr("Failed to tell the service manager: " + gone +
                             ": READY=1: No such file or directory"));
  EXPECT_EQ(log.find("[66070]"), log.rfind("[66070]"));
}

TEST_F(ServiceManagerTest, WhoseNameIsTooLongIsLogged) {
  const std::string name = "/" + std::string(200, 'x');
  agent.setEnvironment("NOTIFY_SOCKET", name);
  starts({"chatter"});
  EXPECT_TRUE(agent.waitForLog("Failed to tell the service manager: " + name +
                               ": READY=1: File name too long"));
  stopsInOrder();
}

TEST_F(ServiceManagerTest, ThatListensAtNoUnixSocketIsLogged) {
  agent.setEnvironment("NOTIFY_SOCKET", "vsock:2:1234");
  starts({"chatter"});
  EXPECT_TRUE(agent.waitForLog(
      "Failed to tell the service manager: vsock:2:1234: READY=1: Address family not supported"));
  stopsInOrder();
}

TEST_F(ServiceManagerTest, OfTheLeastPatienceGetsSignsOfLifeAgainAndAgain) {
  startsWatched("chatter", "1");
  // A leader is at one piece of work for longer than that.
  EXPECT_TRUE(socket_.nextSignOfLife());
  EXPECT_TRUE(socket_.nextSignOfLife());
  agent.send(SIGTERM);
  hasEndedInOrder(agent.waitForEnd());
}

TEST_F(ServiceManagerTest, GetsSignsOfLife) {
  startsWatched("chatter", "400000");
  EXPECT_EQ("WATCHDOG=1", socket_.next());
  EXPECT_EQ("WATCHDOG=1", socket_.next());
  agent.send(SIGTERM);
  EXPECT_THAT(socket_.nextNews(), StartsWith("STOPPING=1"));
  hasEndedInOrder(agent.waitForEnd());
}

TEST_F(ServiceManagerTest, ThatWatchesAnotherProcessGetsNoSignsOfLife) {
  agent.setEnvironment("WATCHDOG_PID", "1");
  startsWatched("chatter", "1");
  EXPECT_THAT(restOfTheNews(), StartsWith("STOPPING=1"));
}

TEST_F(ServiceManagerTest, WhosePatienceIsNoNumberGetsNoSignsOfLife) {
  startsWatched("chatter", "soon");
  EXPECT_THAT(restOfTheNews(), StartsWith("STOPPING=1"));
  EXPECT_THAT(agent.log(),
              HasSubstr("Failed to feed the service manager's watchdog: WATCHDOG_USEC: \"soon\" is "
                        "no whole number above 0"));
}

TEST_F(ServiceManagerTest, GetsNoSignsOfLifeWhileALeaderIsStuck) {
  startsWatched("waiting_leader", "400000");
  ASSERT_TRUE(agent.waitForFile("waiting"));
  EXPECT_THAT(socket_.nextNews(),
              StartsWith("STATUS=the leader of module 44 (waiting) has been at the same work for"));
  EXPECT_TRUE(agent.waitForLog(
      "The service manager's watchdog is not fed: the leader of module 44 (waiting)"));
  agent.makeFile("go");
  // The next word is that all is well again.
  EXPECT_EQ(kReady, socket_.next());
  EXPECT_EQ("WATCHDOG=1", socket_.next());
  EXPECT_TRUE(agent.waitForLog("The service manager's watchdog is fed again"));
  stopsInOrder();
}

}  // namespace
}  // namespace qov::test
