#include "tests/link/link_fixture.h"

#include <regex>

namespace qov::test {
namespace {

struct LogRecord {
  std::string tag;
  std::string id;
  std::string message;
};

std::vector<LogRecord> recordsIn(const std::string& log) {
  static const std::regex head(R"(^\[\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\]\[(\d+)\]\[(\w+)\])"
                               R"(\[QOVPUBLIC\]\[\w*,\d+\]\[\]\[[^\]]*\] (.*)$)");
  std::vector<LogRecord> found;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_match(line, match, head)) {
      found.push_back({match[2], match[1], match[3]});
    } else if (!found.empty()) {
      found.back().message += "\n" + line;
    }
  }
  return found;
}

}  // namespace

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
