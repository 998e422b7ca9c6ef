#include <gtest/gtest.h>
#include <qovplatform/platform_guard.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned kReadNodeId = 512;

// The request byte by byte, so that a change of the record's layout is noticed.
class NodeIdRequest {
 public:
  NodeIdRequest() {
    bytes_.fill(0);
    putWord(4, 2);
    putWord(12, 0xDEADBEEF);  // padding, of no meaning
    putAddress(24, &nodeId);
  }

  void putWord(std::size_t offset, std::uint32_t word) {
    std::memcpy(&bytes_[offset], &word, sizeof(word));
  }
  void putAddress(std::size_t offset, void* address) {
    std::memcpy(&bytes_[offset], &address, sizeof(address));
  }
  int call(unsigned command = kReadNodeId) { return PXOS_SysCall(command, bytes_.data()); }

  std::uint16_t nodeId = 4711;

 private:
  alignas(8) std::array<unsigned char, 32> bytes_;
};

void expectFailure(NodeIdRequest& request, unsigned command = kReadNodeId) {
  errno = 0;
  EXPECT_EQ(request.call(command), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(request.nodeId, 4711) << "a failure leaves the caller's id as it was";
}

class NodeIdText : public ::testing::TestWithParam<const char*> {};

}  // namespace

using GoodNodeId = NodeIdText;
TEST_P(GoodNodeId, IsRead) {
  ::setenv("PXOS_NODE_ID", GetParam(), 1);
  NodeIdRequest request;
  EXPECT_EQ(request.call(), 0);
  EXPECT_EQ(request.nodeId, std::strtoul(GetParam(), nullptr, 10));
}
INSTANTIATE_TEST_SUITE_P(Texts, GoodNodeId, ::testing::Values("0", "1", "65535", "0042"));

using BadNodeId = NodeIdText;
TEST_P(BadNodeId, IsRefused) {
  ::setenv("PXOS_NODE_ID", GetParam(), 1);
  NodeIdRequest request;
  expectFailure(request);
}
INSTANTIATE_TEST_SUITE_P(Texts, BadNodeId,
                         ::testing::Values("", "65536", "-1", "+1", " 1", "1 ", "1x", "0x10", "1.0",
                                           "99999999999999999999999"));

TEST(PlatformSysCall, FailsWithoutANodeIdInTheEnvironment) {
  ::unsetenv("PXOS_NODE_ID");
  NodeIdRequest request;
  expectFailure(request);
}

TEST(PlatformSysCall, RefusesUnknownCommands) {
  ::setenv("PXOS_NODE_ID", "7", 1);
  NodeIdRequest request;
  expectFailure(request, 0);
  expectFailure(request, 511);
  expectFailure(request, 513);
}

TEST(PlatformSysCall, RefusesARequestWithOtherWords) {
  ::setenv("PXOS_NODE_ID", "7", 1);
  for (const std::size_t offset : {0U, 4U, 8U, 16U}) {
    NodeIdRequest request;
    request.putWord(offset, 3);
    expectFailure(request);
  }
}

TEST(PlatformSysCall, RefusesARequestWithoutAPlaceForTheAnswer) {
  ::setenv("PXOS_NODE_ID", "7", 1);
  NodeIdRequest request;
  request.putAddress(24, nullptr);
  expectFailure(request);
  EXPECT_EQ(PXOS_SysCall(kReadNodeId, nullptr), -1);
}
