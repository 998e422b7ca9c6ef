// The input is a message between modules.
#include "tests/msg/fuzz/package_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return qov::test::checkInput<CQOV_MsgPackage>(data, size);
}
