// The input is the content of an INI file.
#include "config/ini/ini_text.h"

#include "frame/env/env_ini_import.h"
#include "tests/config/fuzz/ini_content.h"

using namespace qov;
using test::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  ACE_Configuration_Heap heap;
  if (importIniText(heap, test::textOf(data, size)) != 0) {
    return 0;
  }
  if (const test::IniContent content = test::contentOf(heap); !content.empty()) {
    ACE_Configuration_Heap again;
    require(importIniText(again, toIniFile(heap)) == 0, "what is written can be read");
    require(test::contentOf(again) == content, "what is written reads back as it was");
  }
  return 0;
}
