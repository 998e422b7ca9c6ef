// The input is a message between modules.
#include "tests/msg/fuzz/package_checks.h"

using namespace qov::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  silence();
  const MessageBytes bytes(data, data + size);
  checkMessage<CQOV_MsgPackage>(bytes);
  if (const MessageBytes fit = withLength<QOVMsgHead>(bytes); fit != bytes) {
    checkMessage<CQOV_MsgPackage>(fit);
  }
  return 0;
}
