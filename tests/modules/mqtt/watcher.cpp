#include "tests/modules/mqtt/watcher.h"

#include <unistd.h>

#include <array>
#include <sstream>

#include "tests/support/process_end.h"
#include "tests/support/spawn.h"

namespace qov::test {
namespace {

constexpr const char* kProgram = "/usr/bin/mosquitto_sub";
constexpr const char* kClientId = "watcher";

std::string bytesOf(const std::string& hex) {
  constexpr int kHex = 16;
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, kHex)));
  }
  return bytes;
}

/// A line of the watcher, in the format that it is given.
Seen seenIn(const std::string& line) {
  std::array<std::string, 6> fields;
  std::istringstream text(line);
  for (std::string& field : fields) {
    std::getline(text, field, '|');
  }
  Seen message{fields[0], fields[1] == "1", fields[2], fields[3] == "1", 0, {}, bytesOf(fields[5])};
  std::istringstream properties(fields[4]);
  for (std::string property; properties >> property;) {
    if (property.rfind("number:", 0) == 0) {
      message.number = std::stoull(property.substr(7));
    } else if (property.rfind("outbox:", 0) == 0) {
      message.outbox = property.substr(7);
    }
  }
  return message;
}

}  // namespace

std::string whyNoBroker() {
  const std::string why = MqttBroker::whyNot();
  return why.empty() && ::access(kProgram, X_OK) != 0 ? "mosquitto-clients is not installed" : why;
}

Watcher::Watcher(const MqttBroker& broker, const std::vector<std::string>& options)
    : broker_(broker) {
  std::vector<std::string> words{"-h",
                                 "127.0.0.1",
                                 "-p",
                                 std::to_string(broker.port()),
                                 "-V",
                                 "5",
                                 "-c",
                                 "-x",
                                 "1000",
                                 "-i",
                                 kClientId,
                                 "-q",
                                 "1",
                                 "-t",
                                 "qov/#",
                                 "-F",
                                 "%t|%r|%C|%F|%P|%x"};
  words.insert(words.end(), options.begin(), options.end());
  BeforeProgram before;
  before.writeTo(STDOUT_FILENO, broker.file("seen"));
  pid_ = spawn(kProgram, words, before);
  waitUntil([&] { return broker.log().find("Sending SUBACK to watcher") != std::string::npos; });
}

Watcher::~Watcher() {
  killChild(pid_);
}

std::vector<Seen> Watcher::seen(const std::string& part) const {
  std::vector<Seen> all;
  std::istringstream lines(readFile(broker_.file("seen")));
  for (std::string line; std::getline(lines, line) && !lines.eof();) {
    Seen message = seenIn(line);
    if (message.topic.find(part) != std::string::npos) {
      all.push_back(std::move(message));
    }
  }
  return all;
}

bool Watcher::waitFor(const std::string& part, std::size_t count) const {
  return waitUntil([&] { return seen(part).size() >= count; });
}

nlohmann::json Watcher::status() const {
  const std::vector<Seen> all = seen("/status");
  return all.empty() ? nlohmann::json() : all.back().json();
}

}  // namespace qov::test
