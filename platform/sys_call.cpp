#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/whole_number.h"
#include "qovplatform/platform_guard.h"

namespace {

constexpr unsigned kReadNodeId = 512;

// The request as it lies in the caller's memory.
struct NodeIdRequest {
  std::uint32_t words[3];
  std::uint32_t padding;
  std::uint64_t reserved;
  std::uint16_t* nodeId;
};
static_assert(sizeof(NodeIdRequest) == 32, "the gate's request record is 32 bytes");

bool readNodeId(const NodeIdRequest& request) {
  if (request.words[0] != 0 || request.words[1] != 2 || request.words[2] != 0 ||
      request.reserved != 0 || request.nodeId == nullptr) {
    return false;
  }
  const char* text = std::getenv("PXOS_NODE_ID");
  return text != nullptr && qov::platform::parseWholeNumber(text, *request.nodeId);
}

}  // namespace

int PXOS_SysCall(unsigned command, void* request) {
  if (command == kReadNodeId && request != nullptr) {
    NodeIdRequest copy;
    std::memcpy(&copy, request, sizeof(copy));
    if (readNodeId(copy)) {
      return 0;
    }
  }
  errno = EINVAL;
  return -1;
}
