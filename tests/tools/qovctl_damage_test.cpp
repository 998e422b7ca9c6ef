#include <ace/Log_Msg.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "modules/common/json_object.h"
#include "tests/msg/bytes.h"
#include "tests/vectors/vector_file.h"
#include "tools/qovctl/fault_text.h"
#include "tools/qovctl/message.h"

namespace qov::ctl {
namespace {

/// What the tool does with bytes, in this process, where a read beyond them is noticed.
class QovctlDamage : public ::testing::Test {
 protected:
  QovctlDamage() { log_.priority_mask(0, ACE_Log_Msg::PROCESS); }
  ~QovctlDamage() override { log_.priority_mask(saved_, ACE_Log_Msg::PROCESS); }

  /// Whether the bytes begin with a message. If so it is shown, if not the reason is found.
  bool decodes(const std::vector<unsigned char>& bytes, Kind kind) {
    tests::FencedMemory fenced(bytes);
    const std::string_view input(reinterpret_cast<const char*>(fenced.begin()), bytes.size());
    Message message(kind);
    const auto size = message.decode(input);
    if (!size) {
      const std::string why = textOf(message.fault(), kind, 0);
      EXPECT_TRUE(std::regex_match(why, kReason_)) << why;
      EXPECT_LE(message.fault().pos, bytes.size()) << why;
      return false;
    }
    EXPECT_LE(*size, bytes.size());
    EXPECT_EQ(common::parseJson(common::jsonText(message.json())), message.json());
    EXPECT_FALSE(message.dump().empty());
    return true;
  }

  static std::vector<tests::Vector> vectors() {
    std::vector<tests::Vector> all;
    for (const std::string& name : tests::vectorNames(".json")) {
      all.push_back(tests::readVector(name));
    }
    return all;
  }

  static Kind kindOfVector(const tests::Vector& vector) {
    return *kindOf(vector.meaning["kind"].asString());
  }

 private:
  const std::regex kReason_{
      "bad data at byte [0-9]+: (head-short|magic|version|type|length|record-short|record-length|"
      "cell-short|cell-type|cell-length): .+"};
  ACE_Log_Msg& log_ = *ACE_Log_Msg::instance();
  const u_long saved_ = log_.priority_mask(ACE_Log_Msg::PROCESS);
};

TEST_F(QovctlDamage, EveryTruncationOfAVectorHasAReason) {
  int refused = 0;
  for (const tests::Vector& vector : vectors()) {
    for (std::size_t size = 0; size < vector.bytes.size(); ++size) {
      const std::vector<unsigned char> start(vector.bytes.begin(),
                                             vector.bytes.begin() + static_cast<long>(size));
      refused += decodes(start, kindOfVector(vector)) ? 0 : 1;
    }
  }
  EXPECT_GT(refused, 0);
}

TEST_F(QovctlDamage, EveryFlippedBitOfAVectorIsShownOrHasAReason) {
  int shown = 0;
  int refused = 0;
  for (const tests::Vector& vector : vectors()) {
    for (std::size_t bit = 0; bit < 8 * vector.bytes.size(); ++bit) {
      std::vector<unsigned char> damaged = vector.bytes;
      damaged[bit / 8] = static_cast<unsigned char>(damaged[bit / 8] ^ 1U << bit % 8);
      ++(decodes(damaged, kindOfVector(vector)) ? shown : refused);
    }
  }
  EXPECT_GT(shown, 0);
  EXPECT_GT(refused, 0);
}

TEST_F(QovctlDamage, EveryVectorReadAsAnotherKindHasAReason) {
  for (const tests::Vector& vector : vectors()) {
    const bool v3 = kindOfVector(vector) == Kind::kV3;
    EXPECT_FALSE(decodes(vector.bytes, v3 ? Kind::kInternal : Kind::kV3));
  }
}

}  // namespace
}  // namespace qov::ctl
