#include "config/ini/ini_text.h"

#include <cstring>

namespace qov {
namespace {

// ACE reads lines of this length into its buffer; what is longer becomes a line of its own.
constexpr std::size_t kLongestLine = 4095;

bool isBlank(char c) {
  return c != '\0' && std::strchr(" \t\n\v\f\r", c) != nullptr;
}

bool hasBlankAround(const std::string& text) {
  return !text.empty() && (isBlank(text.front()) || isBlank(text.back()));
}

bool hasLineBreakOrZero(const std::string& text) {
  return text.find_first_of(std::string("\n\r\0", 3)) != std::string::npos;
}

bool isIniKey(const std::string& key) {
  return !key.empty() && !hasLineBreakOrZero(key) && !hasBlankAround(key) &&
         key.find('=') == std::string::npos && key.front() != ';' && key.front() != '#';
}

bool isQuoted(const std::string& text) {
  return !text.empty() && text.front() == '"' && text.back() == '"';
}

/// `value` as it must stand in the file.
std::string toIniText(const std::string& value) {
  return isQuoted(value) || hasBlankAround(value) ? '"' + value + '"' : value;
}

void addValues(ACE_Configuration_Heap& heap, const ACE_Configuration_Section_Key& section,
               std::string& file) {
  ACE_TString name;
  ACE_TString text;
  ACE_Configuration::VALUETYPE type;
  for (int index = 0; heap.enumerate_values(section, index, name, type) == 0; ++index) {
    if (heap.get_string_value(section, name.c_str(), text) == 0) {
      file.append(name.c_str()).append("=").append(toIniText(text.c_str())).append("\n");
    }
  }
}

/// `path` is empty for the root, which has no header and no values of its own.
void addSection(ACE_Configuration_Heap& heap, const ACE_Configuration_Section_Key& section,
                const std::string& path, std::string& file) {
  if (!path.empty()) {
    file.append("[").append(path).append("]\n");
    addValues(heap, section, file);
  }
  ACE_TString name;
  for (int index = 0; heap.enumerate_sections(section, index, name) == 0; ++index) {
    ACE_Configuration_Section_Key inner;
    if (heap.open_section(section, name.c_str(), 0, inner) == 0) {
      addSection(heap, inner, path.empty() ? name.c_str() : path + "\\" + name.c_str(), file);
    }
  }
}

}  // namespace

bool fitsIniLine(const std::string& key, const std::string& value) {
  return isIniKey(key) && !hasLineBreakOrZero(value) &&
         key.size() + 1 + toIniText(value).size() <= kLongestLine;
}

std::string toIniFile(ACE_Configuration_Heap& heap) {
  std::string file;
  addSection(heap, heap.root_section(), "", file);
  return file;
}

}  // namespace qov
