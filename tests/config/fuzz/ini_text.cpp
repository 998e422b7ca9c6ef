// The input is the content of an INI file.
#include "config/ini/ini_text.h"

#include <map>

#include "frame/env/env_ini_import.h"
#include "tests/support/fuzz.h"

using namespace qov;
using test::require;

namespace {

/// Sections and values by their paths; no name has a line break.
using Content = std::map<std::string, std::string>;

void collect(ACE_Configuration_Heap& heap, const ACE_Configuration_Section_Key& section,
             const std::string& path, Content& content) {
  ACE_TString name;
  ACE_TString value;
  ACE_Configuration::VALUETYPE type;
  for (int i = 0; heap.enumerate_values(section, i, name, type) == 0; ++i) {
    require(heap.get_string_value(section, name.c_str(), value) == 0, "a value is a text");
    content[path + "\nvalue " + name.c_str()] = value.c_str();
  }
  for (int i = 0; heap.enumerate_sections(section, i, name) == 0; ++i) {
    ACE_Configuration_Section_Key inner;
    require(heap.open_section(section, name.c_str(), 0, inner) == 0, "a section can be opened");
    content[path + "\nsection " + name.c_str()] = "";
    collect(heap, inner, path + "\n" + name.c_str(), content);
  }
}

Content contentOf(ACE_Configuration_Heap& heap) {
  Content content;
  collect(heap, heap.root_section(), "", content);
  return content;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  ACE_Configuration_Heap heap;
  if (importIniText(heap, test::textOf(data, size)) == 0) {
    ACE_Configuration_Heap again;
    require(importIniText(again, toIniFile(heap)) == 0, "what is written can be read");
    require(contentOf(again) == contentOf(heap), "what is written reads back as it was");
  }
  return 0;
}
