#include "modules/mqtt/operation_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace qov::mqtt {
namespace {

std::string refused(const std::string& text) {
  try {
    OperationList list(text);
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "";
}

TEST(OperationList, HasNothingIfItIsEmpty) {
  for (const OperationList& list : {OperationList(), OperationList(""), OperationList("  ")}) {
    EXPECT_FALSE(list.hasModule(0));
    EXPECT_FALSE(list.has(0, 0));
  }
}

TEST(OperationList, HasTheCodesOfEachModuleInBothBases) {
  const OperationList list("10:0x1001,4098 0:0  10:7");
  EXPECT_TRUE(list.has(10, 0x1001));
  EXPECT_TRUE(list.has(10, 0x1002));
  EXPECT_TRUE(list.has(10, 7));
  EXPECT_TRUE(list.has(0, 0));
  EXPECT_FALSE(list.has(10, 0));
  EXPECT_FALSE(list.has(0, 7));
  EXPECT_FALSE(list.has(11, 7));
  EXPECT_TRUE(list.hasModule(10));
  EXPECT_FALSE(list.hasModule(11));
}

TEST(OperationList, HasAllCodesOfAModuleWithAStar) {
  const OperationList list("255:* 3:1");
  EXPECT_TRUE(list.has(255, 0));
  EXPECT_TRUE(list.has(255, 0xFFFFFFFFFFFFFFFF));
  EXPECT_FALSE(list.has(3, 2));
}

TEST(OperationList, TellsEachOperationAndAllOfAModuleAtOnce) {
  std::vector<std::pair<int, std::optional<std::uint64_t>>> told;
  OperationList("10:7,1 3:2,1 3:*")
      .each([&](std::uint8_t module, std::optional<std::uint64_t> code) {
        told.emplace_back(module, code);
      });
  EXPECT_THAT(told, ::testing::ElementsAre(std::pair(3, std::nullopt), std::pair(10, 1U),
                                           std::pair(10, 7U)));
}

TEST(OperationList, RefusesWhatIsNoListWithThePart) {
  EXPECT_EQ(refused("255:18446744073709551615"), "");
  EXPECT_EQ(refused("10"), "\"10\": not MODULE:CODE,CODE... or MODULE:*");
  EXPECT_EQ(refused("256:1"), "\"256:1\": \"256\" is no module, 0 to 255");
  EXPECT_EQ(refused("3:1 :1"), "\":1\": \"\" is no module, 0 to 255");
  EXPECT_EQ(refused("3:18446744073709551616"),
            "\"3:18446744073709551616\": \"18446744073709551616\" is no operation code, 0 to "
            "18446744073709551615");
  for (const char* text : {"3:", "3:1,", "3:,1", "3:x", "3:-1", "3:0x", "3:1,*", "-1:1", "*:1"}) {
    EXPECT_NE(refused(text), "") << text;
  }
}

}  // namespace
}  // namespace qov::mqtt
