#include <set>

#include "tests/process/agent_test.h"
#include "tests/support/sanitizers.h"

using ::testing::IsSupersetOf;

namespace qov::test {
namespace {

class AgentThreads : public AgentTest {
 protected:
  /// Waits until a thread has the name `name`; returns the names of all.
  std::multiset<std::string> namesOnceThereIs(const std::string& name) {
    std::multiset<std::string> names;
    waitUntil([&] {
      names = agent.threadNames();
      return names.count(name) != 0;
    });
    return names;
  }
};

TEST_F(AgentThreads, AreNamedAfterModuleAndRole) {
  starts({"named"});
  // Those that the module names and those that its scheduler makes come last.
  namesOnceThereIs("christened");
  const std::multiset<std::string> names = namesOnceThereIs("m255-worker-2");
  EXPECT_THAT(names,
              IsSupersetOf({"m255-leader", "m255-scheduler", "m255-worker-1", "m255-worker-2",
                            "m255-static", "m255-task", "m255-sixteen-ab", "christened"}));
  stopsInOrder();
}

TEST_F(AgentThreads, LeaveNoneUnnamed) {
  starts({"named"});
  const std::multiset<std::string> names = namesOnceThereIs("christened");
  // What no one names is called like the main thread, as is ThreadSanitizer's own thread.
  EXPECT_EQ(names.count(agent.mainThreadName()), QOV_TEST_TSAN ? 2u : 1u)
      << ::testing::PrintToString(names);
  stopsInOrder();
}

}  // namespace
}  // namespace qov::test
