// The input is a record, for getRecord().
#include "tests/msg/fuzz/package_checks.h"

using namespace qov::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  silence();
  checkRecordAlone(MessageBytes(data, data + size));
  return 0;
}
