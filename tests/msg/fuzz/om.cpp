// The input is a message between modules that carries a V3 message.
#include "tests/msg/fuzz/package_checks.h"

using namespace qov::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  silence();
  const MessageBytes bytes(data, data + size);
  const MessageBytes fit = withLength<TLVMsgHeadV3>(bytes, sizeof(QOVMsgHead));
  checkMessage<CQOV_OM_MsgPackage>(fit);
  if (fit != bytes) {
    checkMessage<CQOV_OM_MsgPackage>(bytes);
  }
  return 0;
}
