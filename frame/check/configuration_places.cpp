#include "frame/check/configuration_places.h"

#include <strings.h>

#include <algorithm>
#include <map>

#include "diag/log_value.h"

namespace qov {
namespace {

using Keys = std::vector<std::string>;

/// The library's own sections. Others belong to modules.
const std::map<std::string, Keys>& knownSections() {
  static const std::map<std::string, Keys> known = [] {
    std::map<std::string, Keys> sections{{"QOV_GLOBAL", {"PROC_PID"}}, {"MMT", {"MMT_ADDR"}}};
    for (const LogKey& key : kLogKeys) {
      sections["LOG_CFG"].emplace_back(key.name);
    }
    for (const LogFormKey& key : kLogFormKeys) {
      sections["LOG_CFG"].emplace_back(key.name);
    }
    return sections;
  }();
  return known;
}

bool isSame(const std::string& one, const std::string& other) {
  return ::strcasecmp(one.c_str(), other.c_str()) == 0;
}

std::string withoutBlanks(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
  return text;
}

/// Of a section that is none of the library's.
std::string whyOtherSection(const std::string& section) {
  for (const auto& known : knownSections()) {
    if (isSame(withoutBlanks(section), known.first)) {
      return "section [" + section + "] is ignored; the name is " + known.first;
    }
  }
  return {};
}

}  // namespace

unsigned ConfigurationPlaces::lineOf(const std::string& path) const {
  const std::size_t slash = path.find('/');
  const std::string section = path.substr(0, slash);
  const std::string key = slash == std::string::npos ? "" : path.substr(slash + 1);
  unsigned found = 0;
  for (const IniLine& line : lines_) {
    const bool isFirstHeader = found == 0 && line.key.empty();
    // Of several lines with one key the last one counts.
    const bool isKey = !key.empty() && isSame(line.key, key);
    if (line.section == section && (isFirstHeader || isKey)) {
      found = line.number;
    }
  }
  return found;
}

void ConfigurationPlaces::addIgnored(std::vector<QOVFinding>& findings) const {
  for (const IniLine& line : lines_) {
    if (const std::string why = whyIgnored(line); !why.empty()) {
      findings.push_back({true, file_, line.number, why});
    }
  }
}

std::string ConfigurationPlaces::whyIgnored(const IniLine& line) const {
  const auto section = knownSections().find(line.section);
  if (line.key.empty()) {
    return section == knownSections().end() ? whyOtherSection(line.section) : "";
  }
  const std::string key = line.section + "/" + line.key;
  if (section != knownSections().end() &&
      std::none_of(section->second.begin(), section->second.end(),
                   [&](const std::string& known) { return isSame(known, line.key); })) {
    return key + ": unknown key";
  }
  const unsigned last = lineOf(key);
  return last != line.number
             ? key + ": ignored, since line " + std::to_string(last) + " has the key, too"
             : "";
}

}  // namespace qov
