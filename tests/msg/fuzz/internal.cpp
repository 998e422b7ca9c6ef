// The input is a message between modules.
#include "tests/msg/fuzz/package_checks.h"

using namespace qov::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  silence();
  const MessageBytes bytes(data, data + size);
  const MessageBytes fit = withLength<QOVMsgHead>(bytes);
  checkMessage<CQOV_MsgPackage>(fit);
  if (fit != bytes) {
    checkMessage<CQOV_MsgPackage>(bytes);
  }
  return 0;
}
