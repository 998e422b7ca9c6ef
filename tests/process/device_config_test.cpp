#include "tests/process/agent_test.h"

using ::testing::EndsWith;

namespace qov::test {
namespace {

/// An agent whose module asks for its device configuration when it is told to.
class AgentDeviceConfig : public AgentTest {
 protected:
  AgentDeviceConfig() : AgentTest(QOV_TEST_CONFIGURED_AGENT) {}

  std::filesystem::path xmlFile() {
    return agent.root().confDirectory() / "qov_configured_agent.xml";
  }
};

TEST_F(AgentDeviceConfig, IsReadFromTheFileBesideItsConfiguration) {
  AgentRoot::write(xmlFile(),
                   "<AgentConfig><DeviceConfig><Device DeviceDesc='a'>"
                   "<ConfigItem Key='k' Value='here'/></Device></DeviceConfig></AgentConfig>");
  starts({"configured"});
  agent.makeFile("go");
  EXPECT_TRUE(agent.waitForLog("the item is here"));
  stopsInOrder();
}

TEST_F(AgentDeviceConfig, ThatIsMissingEndsTheProcessUnderItsThreads) {
  starts({"configured"});
  agent.makeFile("go");
  hasExited(agent.waitForEnd(), 1);
  EXPECT_FALSE(std::filesystem::exists(agent.root().path() / "destroyed"));
  const std::string path = xmlFile();
  EXPECT_THAT(agent.log(), EndsWith("] Failed to open " + path + ", try 3 times.\n"));
}

TEST_F(AgentDeviceConfig, ThatIsMalformedEndsTheProcess) {
  AgentRoot::write(xmlFile(), "<AgentConfig>\n<DeviceConfig>\n</AgentConfig>\n");
  starts({"configured"});
  agent.makeFile("go");
  hasExited(agent.waitForEnd(), 1);
  EXPECT_THAT(agent.log(), ::testing::HasSubstr("line 3, column 1: Error reading end tag."));
}

}  // namespace
}  // namespace qov::test
