#include "modules/mqtt/settings.h"

#include <qovpub/qov_exception.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_utility.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "modules/delivered_sections.h"

namespace qov::mqtt {
namespace {

class Section {
 public:
  Section() { configuration_.open(nullptr); }

  /// Empty without the key.
  std::string text(const char* key) {
    std::string value;
    configuration_.getConfigItem(kSection, key, value);
    return value;
  }

  template <class Number>
  Number number(const char* key, Number least, Number most, Number otherwise) {
    std::string value;
    if (configuration_.getConfigItem(kSection, key, value) != 0) {
      return otherwise;
    }
    Number number{};
    const char* const end = value.data() + value.size();
    const auto parsed = std::from_chars(value.data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end || number < least || number > most) {
      refuse(key, value, "no number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return number;
  }

  std::chrono::seconds seconds(const char* key, int least, int most,
                               std::chrono::seconds otherwise) {
    return std::chrono::seconds(number(key, least, most, static_cast<int>(otherwise.count())));
  }

  /// Of a file that can be read; empty without the key.
  std::string file(const char* key) {
    std::string value = text(key);
    if (!value.empty() && ::access(value.c_str(), R_OK) != 0) {
      refuse(key, value, "cannot be read: " + std::generic_category().message(errno));
    }
    return value;
  }

  OperationList operations(const char* key) {
    const std::string value = text(key);
    try {
      return OperationList(value);
    } catch (const std::invalid_argument& bad) {
      refuse(key, value, bad.what());
    }
  }

  std::vector<std::string> unknownKeys() { return qov::unknownKeys(configuration_, "qovmqtt"); }

  [[noreturn]] static void refuse(const char* key, const std::string& value,
                                  const std::string& why) {
    throw CQOV_Exception("Failed to read the settings of the MQTT connection: " +
                         QOV_Utility::getProcessCfgFileName() + ": [" + kSection + "] " + key +
                         "=" + value + ": " + why);
  }

 private:
  CQOV_Ini_Operator configuration_;
};

void readConnection(Section& section, Settings& settings) {
  settings.host = section.text("Host");
  if (settings.host.empty()) {
    Section::refuse("Host", "", "the broker's name or address is missing");
  }
  settings.tls = section.number("Tls", 0, 1, 1) != 0;
  constexpr int kTlsPort = 8883;
  constexpr int kPlainPort = 1883;
  settings.port = section.number("Port", 1, 65535, settings.tls ? kTlsPort : kPlainPort);
  settings.caFile = section.file("CaFile");
  settings.certFile = section.file("CertFile");
  settings.keyFile = section.file("KeyFile");
  if (settings.certFile.empty() != settings.keyFile.empty()) {
    Section::refuse("CertFile", settings.certFile, "CertFile and KeyFile belong together");
  }
  if (!settings.tls && !(settings.caFile + settings.certFile).empty()) {
    Section::refuse("Tls", "0", "files of certificates are given");
  }
  settings.user = section.text("User");
  settings.passwordFile = section.file("PasswordFile");
  if (settings.user.empty() && !settings.passwordFile.empty()) {
    Section::refuse("PasswordFile", settings.passwordFile, "the key User is missing");
  }
  settings.keepAlive = section.seconds("KeepAliveSeconds", 5, 65535, settings.keepAlive);
  settings.session = section.seconds("SessionSeconds", 0, 31536000, settings.session);
  settings.longestWait = section.seconds("ReconnectSeconds", 1, 3600, settings.longestWait);
}

EventForm eventForm(Section& section) {
  const std::string form = section.text("EventForm");
  if (form.empty() || form == "json") {
    return EventForm::kJson;
  }
  if (form != "bytes") {
    Section::refuse("EventForm", form, "neither json nor bytes");
  }
  return EventForm::kBytes;
}

void readEvents(Section& section, Settings& settings) {
  settings.eventForm = eventForm(section);
  settings.copied = section.operations("CopyMessages");
  if (settings.copied.hasModule(static_cast<std::uint8_t>(settings.moduleId))) {
    Section::refuse("CopyMessages", section.text("CopyMessages"),
                    std::to_string(settings.moduleId) + " is this module's own id");
  }
}

void readOutbox(Section& section, Settings& settings) {
  settings.outbox = section.text("Outbox");
  if (settings.outbox.empty()) {
    settings.outbox =
        QOV_Utility::getQOVRootEnv() + "/data/" + QOV_Utility::getProcessName() + ".outbox";
  } else if (settings.outbox.front() != '/') {
    Section::refuse("Outbox", settings.outbox, "no absolute path");
  }
  constexpr std::uint64_t kMostRows = 100000000;
  constexpr std::uint64_t kMostKilobytes = std::uint64_t{16} << 20U;
  constexpr std::uint64_t kKilobyte = 1024;
  settings.outboxRows =
      section.number<std::uint64_t>("OutboxRows", 1, kMostRows, settings.outboxRows);
  settings.outboxBytes =
      kKilobyte * section.number<std::uint64_t>("OutboxKilobytes", 1, kMostKilobytes,
                                                settings.outboxBytes / kKilobyte);
}

void readRequests(Section& section, RequestSettings& settings) {
  settings.allowed = section.operations("AllowRequests");
  using Count = std::chrono::milliseconds::rep;
  settings.timeout = std::chrono::milliseconds(section.number<Count>(
      "RequestMilliseconds", 1, kLongestRequest.count(), settings.timeout.count()));
  settings.pending =
      section.number<std::size_t>("RequestsPending", 1, QOVRequest::kMostLater, settings.pending);
}

/// Without the key, what the platform says.
std::string nodeOf(Section& section) {
  std::string node = section.text("Node");
  if (node.empty()) {
    u_short id = 0;
    if (QOV_Utility::GetNodeIdLocal(id) != 0) {
      Section::refuse("Node", "", "the platform does not tell the node's id; give one here");
    }
    node = std::to_string(id);
  }
  return node;
}

}  // namespace

Settings readSettings() {
  Section section;
  Settings settings;
  settings.moduleId = section.number("ModuleId", 0U, 255U, settings.moduleId);
  readConnection(section, settings);
  settings.node = nodeOf(section);
  readEvents(section, settings);
  readOutbox(section, settings);
  readRequests(section, settings.requests);
  settings.unknownKeys = section.unknownKeys();
  return settings;
}

}  // namespace qov::mqtt
