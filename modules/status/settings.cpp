#include "modules/status/settings.h"

#include <grp.h>
#include <pwd.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_utility.h>

#include <charconv>
#include <vector>

#include "modules/delivered_sections.h"
#include "modules/status/socket_path.h"

namespace qov::status {
namespace {

constexpr std::size_t kEntrySize = 65536;

std::optional<unsigned int> numberOf(const std::string& text, int base) {
  unsigned int number = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number, base);
  const bool whole = parsed.ec == std::errc() && parsed.ptr == end;
  return whole ? std::optional(number) : std::nullopt;
}

std::optional<uid_t> userOf(const std::string& name) {
  std::vector<char> texts(kEntrySize);
  passwd entry{};
  passwd* found = nullptr;
  ::getpwnam_r(name.c_str(), &entry, texts.data(), texts.size(), &found);
  return found != nullptr ? std::optional(found->pw_uid) : numberOf(name, 10);
}

std::optional<gid_t> groupOf(const std::string& name) {
  std::vector<char> texts(kEntrySize);
  group entry{};
  group* found = nullptr;
  ::getgrnam_r(name.c_str(), &entry, texts.data(), texts.size(), &found);
  return found != nullptr ? std::optional(found->gr_gid) : numberOf(name, 10);
}

class Section {
 public:
  explicit Section(CQOV_Ini_Operator& configuration) : configuration_(configuration) {}

  std::optional<std::string> text(const char* key) const {
    std::string value;
    const bool found = configuration_.getConfigItem(kSection, key, value) == 0;
    return found ? std::optional(value) : std::nullopt;
  }

  unsigned int number(const char* key, int base, unsigned int least, unsigned int most,
                      unsigned int otherwise) const {
    const auto value = text(key);
    if (!value) {
      return otherwise;
    }
    const auto number = numberOf(*value, base);
    if (!number || *number < least || *number > most) {
      refuse(key, *value, base == 8 ? "no octal number in range" : "no number in range");
    }
    return *number;
  }

  /// What `find` makes of the value; nothing without the key.
  template <class Id>
  std::optional<Id> account(const char* key, std::optional<Id> (*find)(const std::string&)) const {
    const auto value = text(key);
    if (!value) {
      return std::nullopt;
    }
    const auto id = find(*value);
    if (!id) {
      refuse(key, *value, "no such name");
    }
    return id;
  }

  /// An absolute path: tools that look for the file have another working directory.
  std::string path(const char* key, const std::string& value) const {
    if (value.empty() || value.front() != '/') {
      refuse(key, value, "no absolute path");
    }
    return value;
  }

 private:
  [[noreturn]] static void refuse(const char* key, const std::string& value, const char* why) {
    throw CQOV_Exception("Failed to read the settings of the status socket: " +
                         QOV_Utility::getProcessCfgFileName() + ": [" + kSection + "] " + key +
                         "=" + value + ": " + why);
  }

  CQOV_Ini_Operator& configuration_;
};

}  // namespace

Settings readSettings() {
  CQOV_Ini_Operator configuration;
  configuration.open(nullptr);
  const Section section(configuration);
  Settings settings;
  settings.moduleId = section.number("ModuleId", 10, 0, 255, settings.moduleId);
  settings.socket = section.path("Socket", socketPath(configuration, QOV_Utility::getQOVRootEnv(),
                                                      QOV_Utility::getProcessName()));
  settings.owner = section.account<uid_t>("Owner", userOf);
  settings.group = section.account<gid_t>("Group", groupOf);
  settings.mode = section.number("Mode", 8, 0, 0777, settings.group ? 0660 : 0600);
  settings.patience = std::chrono::seconds(section.number("ClientSeconds", 10, 1, 3600, 10));
  if (const auto file = section.text("MetricsFile"); file) {
    settings.metricsFile = section.path("MetricsFile", *file);
  }
  settings.metricsPeriod = std::chrono::seconds(section.number("MetricsSeconds", 10, 1, 3600, 15));
  settings.unknownKeys = unknownKeys(configuration, "qovstatus");
  return settings;
}

}  // namespace qov::status
