#ifndef QOV_TESTS_CONFIG_FUZZ_INI_CONTENT_H
#define QOV_TESTS_CONFIG_FUZZ_INI_CONTENT_H

#include <ace/Configuration.h>
#include <strings.h>

#include <algorithm>
#include <map>
#include <string>

#include "tests/support/fuzz.h"

namespace qov::test {

/// "LogLevel" and "loglevel" are one key; so it is with sections.
struct IgnoresCase {
  bool operator()(const std::string& one, const std::string& other) const {
    return ::strcasecmp(one.c_str(), other.c_str()) < 0;
  }
};

/// Sections and values of an INI file by their paths, whose parts are apart by line breaks: no name
/// has one.
using IniContent = std::map<std::string, std::string, IgnoresCase>;

/// Whether both have the same values, whatever the case of their names.
inline bool haveSameValues(const IniContent& one, const IniContent& other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](const auto& mine, const auto& its) {
                      const IgnoresCase less;
                      return !less(mine.first, its.first) && !less(its.first, mine.first) &&
                             mine.second == its.second;
                    });
}

inline std::string pathOfValue(const std::string& section, const std::string& key) {
  return section + "\nvalue " + key;
}

inline void collect(ACE_Configuration_Heap& heap, const ACE_Configuration_Section_Key& section,
                    const std::string& path, IniContent& content) {
  ACE_TString name;
  ACE_TString value;
  ACE_Configuration::VALUETYPE type;
  for (int i = 0; heap.enumerate_values(section, i, name, type) == 0; ++i) {
    require(heap.get_string_value(section, name.c_str(), value) == 0, "a value is a text");
    content[pathOfValue(path, name.c_str())] = value.c_str();
  }
  for (int i = 0; heap.enumerate_sections(section, i, name) == 0; ++i) {
    ACE_Configuration_Section_Key inner;
    require(heap.open_section(section, name.c_str(), 0, inner) == 0, "a section can be opened");
    content[path + "\nsection " + name.c_str()] = "";
    collect(heap, inner, path + "\n" + name.c_str(), content);
  }
}

inline IniContent contentOf(ACE_Configuration_Heap& heap) {
  IniContent content;
  collect(heap, heap.root_section(), "", content);
  return content;
}

}  // namespace qov::test

#endif
