#include "tests/modules/status/status_fixture.h"

#include <stdexcept>

namespace qov::test {

StatusTest::StatusTest() {
  agent.root().addModule("qovstatus");
}

void StatusTest::configure(const std::string& lines, int logLevel) {
  agent.root().writeConfig(logLevel);
  const std::filesystem::path file = agent.root().cfgFile();
  AgentRoot::write(file, readFile(file) + "[STATUS]\n" + lines);
}

void StatusTest::failsToStart() {
  agent.start({"-n"});
  hasExited(agent.waitForEnd(), 1);
}

bool StatusTest::countReaches(const char* what, int value) {
  return waitUntil([&] {
    try {
      return count(what) >= value;
    } catch (const std::runtime_error&) {
      return false;
    }
  });
}

}  // namespace qov::test
