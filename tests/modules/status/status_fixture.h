#ifndef QOV_TESTS_MODULES_STATUS_STATUS_FIXTURE_H
#define QOV_TESTS_MODULES_STATUS_STATUS_FIXTURE_H

#include <string>

#include "tests/modules/status/status_client.h"
#include "tests/process/agent_test.h"

namespace qov::test {

/// A test of an agent with the module qovstatus.
class StatusTest : public AgentTest {
 protected:
  StatusTest();

  /// Writes the agent's configuration with these lines in section "STATUS".
  void configure(const std::string& lines, int logLevel = 1);
  /// Starts the agent with the given modules and this one.
  void startsWith(const std::vector<std::string>& modules = {}) { starts(modules); }
  /// Starts an agent that does not come up.
  void failsToStart();

  /// Where the socket is without a key.
  std::filesystem::path socket() { return agent.root().path() / "run" / "qov_test_agent.sock"; }
  StatusClient client() { return StatusClient(socket()); }
  nlohmann::json status() { return client().ask({{"request", "status"}}); }
  /// A count of the member "clients".
  int count(const char* what) { return status()["clients"][what]; }
  /// Waits until the count is that high. A short "ClientSeconds" may drop who asks, too.
  bool countReaches(const char* what, int value);
};

}  // namespace qov::test

#endif
