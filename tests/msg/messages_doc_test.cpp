// What docs/messages.md shows is what the library reads and writes.
#include <gtest/gtest.h>
#include <qovpub/qov_om_message_package.h>

#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

#include "tests/msg/log_lines.h"
#include "tests/vectors/vector_file.h"

namespace qov::tests {
namespace {

std::string document() {
  std::ifstream file(QOV_MESSAGES_DOC);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The fenced blocks of `kind`, each by the name of the vector that it shows.
std::map<std::string, std::string> blocks(const std::string& kind) {
  const std::string fence = "```";
  const std::string start = fence + kind + " ";
  std::map<std::string, std::string> found;
  std::istringstream in(document());
  std::string* block = nullptr;
  for (std::string line; std::getline(in, line);) {
    if (line.compare(0, start.size(), start) == 0) {
      block = &found[line.substr(start.size())];
    } else if (line == fence) {
      block = nullptr;
    } else if (block != nullptr) {
      *block += line + "\n";
    }
  }
  return found;
}

template <class Package>
std::string dumpOf(Package&& package, std::vector<unsigned char> bytes) {
  EXPECT_NE(package.decode(bytes.data(), static_cast<unsigned int>(bytes.size())),
            CT7QPackageV3::kFailed);
  std::ostringstream out;
  package.dump(out);
  return out.str();
}

TEST(MessagesDoc, ShowsTheBytesOfAVector) {
  const auto shown = blocks("hex");
  ASSERT_FALSE(shown.empty());
  for (const auto& [name, text] : shown) {
    EXPECT_EQ(bytesOfHex(text), readVector(name).bytes) << name;
  }
}

TEST(MessagesDoc, ShowsMessagesAsTheyAreDumped) {
  const auto shown = blocks("dump");
  ASSERT_EQ(shown.size(), 2U);
  EXPECT_EQ(shown.at("v3_interface_row"),
            dumpOf(CT7QPackageV3(), readVector("v3_interface_row").bytes));
  EXPECT_EQ(shown.at("om_interface_row"),
            dumpOf(CQOV_OM_MsgPackage(nullptr), readVector("om_interface_row").bytes));
}

TEST(MessagesDoc, HasTheTextOfEveryRefusal) {
  const std::string text = document();
  for (const auto& [refused, line] : kRecordFaults) {
    EXPECT_NE(text.find("`" + line), std::string::npos) << refused;
  }
  EXPECT_NE(text.find("`" + kBadHead.front() + "`"), std::string::npos);
  EXPECT_NE(text.find("CTLVPackageV3::verifyMsgHead: pBuf is null or uiBufSize equal zero!`"),
            std::string::npos);
}

}  // namespace
}  // namespace qov::tests
