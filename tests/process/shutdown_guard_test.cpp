#include "tests/process/agent_test.h"

namespace qov::test {
namespace {

constexpr const char* kMade = "guard of 450 seconds is made";
constexpr const char* kGone = "guard is gone";

/// An agent whose guard logs what becomes of it.
class AgentGuard : public AgentTest {
 protected:
  AgentGuard() : AgentTest(QOV_TEST_GUARD_AGENT) {}

  /// Each text stands behind the one before.
  void logsInTurn(const std::vector<std::string>& texts) {
    const std::string log = agent.log();
    std::size_t at = 0;
    for (const std::string& text : texts) {
      at = log.find(text, at);
      ASSERT_NE(at, std::string::npos) << text << " is missing, or too early, in\n" << log;
      at += text.size();
    }
  }
};

TEST_F(AgentGuard, StandsAroundTheEventLoopAndTheShutdown) {
  agent.root().writeConfig(0);
  starts({"plugged"});
  stopsInOrder();
  logsInTurn({"enter void CQOVapp::event_loop_done()...", kMade,
              "enter void CQOV_Module_Loader::unload()...", kStopped, kGone,
              "leave void CQOVapp::event_loop_done(): OK"});
}

TEST_F(AgentGuard, IsTheOnlyOneOfItsKind) {
  agent.root().writeConfig(0);
  starts({"plugged"});
  stopsInOrder();
  const std::string log = agent.log();
  EXPECT_EQ(log.find(kMade), log.rfind(kMade));
}

}  // namespace
}  // namespace qov::test
