#include "tests/process/agent_test.h"
#include "tests/support/sanitizers.h"

namespace qov::test {
namespace {

// A sanitizer brings an allocator of its own.
#if !QOV_TEST_ASAN && !QOV_TEST_TSAN
class AgentAllocator : public AgentTest {};

TEST_F(AgentAllocator, MapsBlocksFrom1024BytesOnByThemselves) {
  starts({"memory"});
  EXPECT_EQ(agent.state("mapped_1024"), "1");
  EXPECT_EQ(agent.state("mapped_1016"), "1") << "with the allocator's own 8 bytes";
  EXPECT_EQ(agent.state("mapped_1000"), "0");
  stopsInOrder();
}

TEST_F(AgentAllocator, SetsNoFreedBlocksAside) {
  starts({"memory"});
  EXPECT_EQ(agent.state("set_aside"), "0");
  stopsInOrder();
}
#endif

}  // namespace
}  // namespace qov::test
