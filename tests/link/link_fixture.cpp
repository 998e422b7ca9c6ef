#include "tests/link/link_fixture.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <filesystem>
#include <regex>

namespace qov::test {
namespace {

struct LogRecord {
  std::string tag;
  std::string id;
  std::string function;
  std::string message;
};

std::vector<LogRecord> recordsIn(const std::string& log) {
  static const std::regex head(R"(^\[\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\]\[(\d+)\]\[(\w+)\])"
                               R"(\[QOVPUBLIC\]\[(\w*),\d+\]\[\]\[[^\]]*\] (.*)$)");
  std::vector<LogRecord> found;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_match(line, match, head)) {
      found.push_back({match[2], match[1], match[3], match[4]});
    } else if (!found.empty()) {
      found.back().message += "\n" + line;
    }
  }
  return found;
}

}  // namespace

// Not inline: a compiler that sees both the object and a class derived from its own warns of a call
// that is never made.
std::string dumpOf(const CT7QPackageV3& package) {
  std::ostringstream out;
  package.dump(out);
  return out.str();
}

std::vector<int> socketsTo(std::uint16_t port) {
  std::vector<int> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int fd = std::stoi(entry.path().filename());
    sockaddr_in to{};
    socklen_t size = sizeof to;
    if (::getpeername(fd, reinterpret_cast<sockaddr*>(&to), &size) == 0 &&
        to.sin_family == AF_INET && ntohs(to.sin_port) == port) {
      found.push_back(fd);
    }
  }
  return found;
}

void LinkTest::holdsLittle() const {
  const auto sockets = socketsTo(peer.port());
  ASSERT_EQ(sockets.size(), 1U);
  const int least = 1;
  ASSERT_EQ(::setsockopt(sockets[0], SOL_SOCKET, SO_SNDBUF, &least, sizeof least), 0);
}

void LinkTest::makeLarge() {
  const std::string octets(60000, 'x');
  for (int i = 0; i < 4; ++i) {
    package.addRecord(2).addOctets(1, octets.data(), octets.size());
  }
}

ScriptedPeer::Script LinkTest::readsNothing() {
  return [this](PeerConnection&) {
    connected.count();
    mayEnd.waitFor();
  };
}

unsigned int LinkTest::sendsUntilNothingIsTaken() {
  const Message large(1U << 20);
  unsigned int result = 0;
  while (result == 0) {
    result = link->sendMsg_i(large.data(), static_cast<unsigned int>(large.size()));
  }
  mayEnd.count();
  peer.join();
  return result;
}

LinkTest::Strings LinkTest::records(const std::string& tag) const {
  Strings found;
  for (const LogRecord& record : recordsIn(log.text())) {
    if (tag.empty() || record.tag == tag) {
      found.push_back(record.tag + " " + record.id + " " + record.message);
    }
  }
  return found;
}

LinkTest::Strings LinkTest::messages(const std::string& tag) const {
  Strings found;
  for (const LogRecord& record : recordsIn(log.text())) {
    if (record.tag == tag) {
      found.push_back(record.message);
    }
  }
  return found;
}

std::set<std::string> LinkTest::operations() const {
  std::set<std::string> found;
  for (const LogRecord& record : recordsIn(log.text())) {
    found.insert(record.id + " " + record.function);
  }
  return found;
}

LinkTest::Strings LinkTest::causes() const {
  Strings found;
  for (const std::string& message : messages("ERR")) {
    if (message.find("Failed to send message, ") != 0) {
      found.push_back(message);
    }
  }
  return found;
}

}  // namespace qov::test
