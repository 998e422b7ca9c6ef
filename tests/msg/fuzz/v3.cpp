// The input is a V3 message.
#include "tests/msg/fuzz/package_checks.h"

using namespace qov::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  silence();
  const MessageBytes bytes(data, data + size);
  const MessageBytes fit = withLength<TLVMsgHeadV3>(bytes);
  checkMessage<CT7QPackageV3>(fit);
  if (fit != bytes) {
    checkMessage<CT7QPackageV3>(bytes);
  }
  return 0;
}
