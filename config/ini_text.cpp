#include "config/ini_text.h"

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

}  // namespace

std::string toIniText(const std::string& value) {
  return isQuoted(value) || hasBlankAround(value) ? '"' + value + '"' : value;
}

bool fitsIniLine(const std::string& key, const std::string& value) {
  return isIniKey(key) && !hasLineBreakOrZero(value) &&
         key.size() + 1 + toIniText(value).size() <= kLongestLine;
}

ValuesAsIniText::ValuesAsIniText(ACE_Configuration_Heap& heap) : heap_(heap) {
  collect(heap_.root_section());
  // Only now: an enumeration does not survive changes of what it walks through.
  for (const Value& value : changed_) {
    heap_.set_string_value(value.section, value.name.c_str(), toIniText(value.text).c_str());
  }
}

ValuesAsIniText::~ValuesAsIniText() {
  for (const Value& value : changed_) {
    heap_.set_string_value(value.section, value.name.c_str(), value.text.c_str());
  }
}

void ValuesAsIniText::collect(const ACE_Configuration_Section_Key& section) {
  collectValues(section);
  ACE_TString name;
  for (int index = 0; heap_.enumerate_sections(section, index, name) == 0; ++index) {
    ACE_Configuration_Section_Key inner;
    if (heap_.open_section(section, name.c_str(), 0, inner) == 0) {
      collect(inner);
    }
  }
}

void ValuesAsIniText::collectValues(const ACE_Configuration_Section_Key& section) {
  ACE_TString name;
  ACE_TString text;
  ACE_Configuration::VALUETYPE type;
  for (int index = 0; heap_.enumerate_values(section, index, name, type) == 0; ++index) {
    if (heap_.get_string_value(section, name.c_str(), text) == 0 &&
        toIniText(text.c_str()) != text.c_str()) {
      changed_.push_back({section, name.c_str(), text.c_str()});
    }
  }
}

}  // namespace qov
