// The input is a message between modules that carries a V3 message.
#include "tests/msg/fuzz/package_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return qov::test::checkInput<CQOV_OM_MsgPackage, TLVMsgHeadV3>(data, size, sizeof(QOVMsgHead));
}
