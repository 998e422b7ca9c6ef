// The input is a V3 message.
#include "tests/msg/fuzz/package_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return qov::test::checkInput<CT7QPackageV3>(data, size);
}
