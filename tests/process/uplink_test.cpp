// The example agent's link to the management endpoint, where the demo does not take it.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/process/agent_test.h"
#include "tests/support/counts.h"
#include "tests/support/files.h"
#include "tests/tools/endpoint_process.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace qov::test {
namespace {

constexpr const char* kEveryTable =
    "<AgentConfig><DeviceConfig><Device DeviceDesc='default'><ConfigItem Key='Fetch' Value='yes'/>"
    "<ConfigItem Key='PeriodMs' Value='20'/></Device></DeviceConfig></AgentConfig>";

/// To be followed by a period.
constexpr const char* kOnlyRecords =
    "<AgentConfig><DeviceConfig><Device DeviceDesc='default'><ConfigItem Key='Fetch' Value='no'/>"
    "<ConfigItem Key='PeriodMs' Value='";

/// A port that nobody can connect to as long as it is there.
class PortWithoutListener {
 public:
  PortWithoutListener() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in name = {};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof name;
    EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&name), size), 0);
    EXPECT_EQ(::getsockname(socket_, reinterpret_cast<sockaddr*>(&name), &size), 0);
    number_ = ntohs(name.sin_port);
  }
  ~PortWithoutListener() { ::close(socket_); }
  PortWithoutListener(const PortWithoutListener&) = delete;
  PortWithoutListener& operator=(const PortWithoutListener&) = delete;

  std::uint16_t number() const { return number_; }

 private:
  const int socket_;
  std::uint16_t number_ = 0;
};

/// The example agent with its modules, run from a directory of its own: a dot in a directory above
/// would leave its process nameless.
class Uplink : public ::testing::Test {
 protected:
  Uplink() {
    const std::filesystem::path program = QOV_DEVAGENT;
    std::filesystem::copy_file(program, agent.program());
    agent.setEnvironment("LD_LIBRARY_PATH", program.parent_path());
    for (const char* const module : {"inventory", "journal", "uplink"}) {
      agent.root().addModule(module);
    }
  }

  void startsWith(const std::string& deviceXml, std::uint16_t port) {
    agent.root().writeConfig();
    const std::string configuration = readFile(agent.root().cfgFile());
    AgentRoot::write(agent.root().cfgFile(),
                     configuration + "[MMT]\nMMT_ADDR=127.0.0.1:" + std::to_string(port) + "\n");
    AgentRoot::write(agent.root().confDirectory() / "devagent.xml", deviceXml);
    agent.start({"-n"});
  }

  void stopsInOrder() {
    agent.send(SIGINT);
    const Ending ending = agent.waitForEnd();
    EXPECT_TRUE(ending.ended) << "hangs";
    EXPECT_EQ(ending.exitStatus, 0) << agent.log() << agent.errors();
    EXPECT_THAT(agent.log(), HasSubstr("in all: exchanges "));
  }

  /// How often the uplink has said what it did so far.
  int rounds() const { return timesOf("notice from uplink: exchanges ", agent.log()); }

  TemporaryDirectory directory;
  AgentProcess agent{directory.file("devagent")};
};

TEST_F(Uplink, WalksTheTablesThatTheDeviceConfigurationWantsAndNoOthers) {
  EndpointProcess endpoint;
  ASSERT_TRUE(endpoint.start());
  startsWith(
      "<AgentConfig><DeviceConfig><Device DeviceDesc='default'><ConfigItem Key='Fetch' Value='no'/>"
      "<ConfigItem Key='PeriodMs' Value='20'/></Device><Device DeviceDesc='mounts'><ConfigItem "
      "Key='Fetch' Value='yes'/></Device></DeviceConfig></AgentConfig>",
      endpoint.port());
  ASSERT_TRUE(agent.waitForLog("latest mounts ")) << agent.log() << agent.errors();
  EXPECT_THAT(agent.log(), Not(HasSubstr(" interfaces ")));
  EXPECT_THAT(agent.log(), Not(HasSubstr(" processes ")));
  stopsInOrder();
}

TEST_F(Uplink, WalksATableAsOftenAsItsOwnDeviceSays) {
  EndpointProcess endpoint;
  ASSERT_TRUE(endpoint.start());
  startsWith(
      "<AgentConfig><DeviceConfig><Device DeviceDesc='default'><ConfigItem Key='Fetch' Value='no'/>"
      "<ConfigItem Key='PeriodMs' Value='20'/></Device><Device DeviceDesc='mounts'><ConfigItem "
      "Key='Fetch' Value='yes'/><ConfigItem Key='PeriodMs' Value='4294967295'/></Device>"
      "</DeviceConfig></AgentConfig>",
      endpoint.port());
  ASSERT_TRUE(waitUntil([this] { return rounds() >= 10; })) << agent.log() << agent.errors();
  EXPECT_THAT(agent.log(), HasSubstr(", tables walked 1, "));
  EXPECT_THAT(agent.log(), Not(HasSubstr(", tables walked 2, ")));
  stopsInOrder();
}

TEST_F(Uplink, KeepsTheAgentFromStartingWhenItsDeviceConfigurationIsIncomplete) {
  const PortWithoutListener nobody;
  startsWith(
      "<AgentConfig><DeviceConfig><Device DeviceDesc='default'><ConfigItem Key='Fetch' "
      "Value='yes'/></Device></DeviceConfig></AgentConfig>",
      nobody.number());
  EXPECT_EQ(agent.waitForEnd().exitStatus, 1);
  EXPECT_THAT(agent.log(), HasSubstr("the device configuration does not do: CQOV_Exception: "
                                     "can't find config item! key=PeriodMs"));
}

TEST_F(Uplink, KeepsTheAgentFromStartingWithAPeriodThatIsNoneAndTakesTheShortest) {
  EndpointProcess endpoint;
  ASSERT_TRUE(endpoint.start());
  for (const std::string period : {"", "0", "-1", "1s", " 20", "4294967296"}) {
    startsWith(kOnlyRecords + period + "'/></Device></DeviceConfig></AgentConfig>",
               endpoint.port());
    EXPECT_EQ(agent.waitForEnd().exitStatus, 1) << period;
    EXPECT_THAT(agent.log(), HasSubstr("the device configuration does not do: CQOV_Exception: "
                                       "PeriodMs of records is no number of milliseconds"));
    std::filesystem::remove(agent.root().logFile());
  }
  startsWith(kOnlyRecords + std::string("1'/></Device></DeviceConfig></AgentConfig>"),
             endpoint.port());
  EXPECT_TRUE(agent.waitForLog("notice from uplink: exchanges ")) << agent.log();
  stopsInOrder();
}

TEST_F(Uplink, StopsWhileTheEndpointIsAway) {
  const PortWithoutListener nobody;
  startsWith(kEveryTable, nobody.number());
  ASSERT_TRUE(agent.waitForLog("notice from uplink: exchanges ")) << agent.log() << agent.errors();
  stopsInOrder();
  EXPECT_THAT(agent.log(), HasSubstr("answered 0, "));
}

TEST_F(Uplink, StopsInTheMiddleOfAWalkThatTakesMinutes) {
  EndpointProcess endpoint;
  ASSERT_TRUE(endpoint.start({"--fault", "delay:seconds=1", "--verbose"}));
  startsWith(kEveryTable, endpoint.port());
  ASSERT_TRUE(endpoint.waitForError("delay")) << endpoint.errors();
  stopsInOrder();
}

TEST_F(Uplink, StopsAtOnceWhileItWaitsForAnAnswer) {
  EndpointProcess endpoint;
  ASSERT_TRUE(endpoint.start({"--fault", "silent", "--verbose"}));
  startsWith(kEveryTable, endpoint.port());
  ASSERT_TRUE(endpoint.waitForError("silent")) << endpoint.errors();
  stopsInOrder();
  EXPECT_THAT(agent.log(), HasSubstr("Failed to receive V3 message, error is Operation canceled"));
  EXPECT_THAT(agent.log(), Not(HasSubstr("Timer expired")));
}

TEST_F(Uplink, GoesOnAfterATableThatIsMalformed) {
  EndpointProcess endpoint;
  ASSERT_TRUE(endpoint.start({"--fault", "text-status:count=1"}));
  startsWith(kEveryTable, endpoint.port());
  EXPECT_TRUE(
      agent.waitForLog("interfaces given up: CQOV_Exception: "
                       "CTLVCell isn't numerical type! tag equal to 4095"));
  EXPECT_TRUE(agent.waitForLog("latest interfaces "));
  stopsInOrder();
}

}  // namespace
}  // namespace qov::test
