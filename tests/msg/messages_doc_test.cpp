// What docs/messages.md shows is what the library reads and writes.
#include <gtest/gtest.h>
#include <qovpub/qov_om_message_package.h>

#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/diag/log_capture.h"
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

/// What is logged of a vector that is refused for its records, without where in the code that is.
Lines refusalOf(const std::string& name) {
  std::vector<unsigned char> bytes = readVector(name).bytes;
  const LogCapture log;
  CT7QPackageV3 package;
  EXPECT_EQ(package.decode(bytes.data(), static_cast<unsigned int>(bytes.size())),
            CT7QPackageV3::kFailed);
  Lines lines = linesOf(log.text());
  for (std::string& line : lines) {
    line.erase(0, (kPlace + kFunctionV3).size());
  }
  return lines;
}

TEST(MessagesDoc, HasTheTextOfEveryRefusal) {
  const std::string text = document();
  for (const char* const name : {"bad_v3_record_short", "bad_v3_record_length", "bad_v3_cell_short",
                                 "bad_v3_cell_type_empty", "bad_v3_cell_length"}) {
    const Lines lines = refusalOf(name);
    ASSERT_FALSE(lines.empty()) << name;
    EXPECT_NE(text.find("`" + lines.front() + "`"), std::string::npos) << lines.front();
  }
  EXPECT_NE(text.find("`" + refusalOf("bad_v3_cell_length").back() + "`"), std::string::npos);
  EXPECT_NE(text.find("`" + kBadHead.front() + "`"), std::string::npos);
  EXPECT_NE(text.find("CTLVPackageV3::verifyMsgHead: pBuf is null or uiBufSize equal zero!`"),
            std::string::npos);
}

}  // namespace
}  // namespace qov::tests
