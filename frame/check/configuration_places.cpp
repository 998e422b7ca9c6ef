#include "frame/check/configuration_places.h"

#include <strings.h>

#include <algorithm>

#include "diag/log_value.h"

namespace qov {
namespace {

bool isSame(const std::string& one, const std::string& other) {
  return ::strcasecmp(one.c_str(), other.c_str()) == 0;
}

std::string withoutBlanks(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
  return text;
}

/// Of a section that nobody reads, as far as is known.
std::string whyOtherSection(const std::string& section, const SectionReaders& readers) {
  for (const auto& [name, reader] : readers) {
    if (reader.missingModule.empty() && isSame(withoutBlanks(section), name)) {
      return "section [" + section + "] is ignored; the name is " + name;
    }
  }
  return {};
}

/// Of a key in a section of that reader.
std::string whyUnread(const std::string& key, const SectionReader& reader) {
  const bool isKnown = std::any_of(reader.keys.begin(), reader.keys.end(),
                                   [&](const std::string& known) { return isSame(known, key); });
  if (reader.missingModule.empty()) {
    return isKnown ? "" : "unknown key";
  }
  // Another module may have a section of that name, and keys of its own there.
  return isKnown ? "not read by " + reader.missingModule + ", which has no marker" : "";
}

}  // namespace

SectionReaders sectionReaders(const std::vector<QOVModuleSection>& sections,
                              const std::list<std::string>& modules) {
  SectionReaders readers{{"QOV_GLOBAL", {{"PROC_PID"}, ""}}, {"MMT", {{"MMT_ADDR"}, ""}}};
  for (const LogKey& key : kLogKeys) {
    readers["LOG_CFG"].keys.emplace_back(key.name);
  }
  for (const LogFormKey& key : kLogFormKeys) {
    readers["LOG_CFG"].keys.emplace_back(key.name);
  }
  for (const QOVModuleSection& section : sections) {
    const bool isLoaded =
        std::find(modules.begin(), modules.end(), section.module) != modules.end();
    readers[section.name] = {section.keys, isLoaded ? "" : section.module};
  }
  return readers;
}

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

void ConfigurationPlaces::addIgnored(const SectionReaders& readers,
                                     std::vector<QOVFinding>& findings) const {
  for (const IniLine& line : lines_) {
    if (const std::string why = whyIgnored(line, readers); !why.empty()) {
      findings.push_back({true, file_, line.number, why});
    }
  }
}

std::string ConfigurationPlaces::whyIgnored(const IniLine& line,
                                            const SectionReaders& readers) const {
  const auto reader = readers.find(line.section);
  if (line.key.empty()) {
    return reader == readers.end() ? whyOtherSection(line.section, readers) : "";
  }
  const std::string key = line.section + "/" + line.key;
  const std::string unread = reader == readers.end() ? "" : whyUnread(line.key, reader->second);
  if (!unread.empty()) {
    return key + ": " + unread;
  }
  const unsigned last = lineOf(key);
  return last != line.number
             ? key + ": ignored, since line " + std::to_string(last) + " has the key, too"
             : "";
}

}  // namespace qov
