// What docs/device-configuration.md shows of a file is what the library finds in it.
#include <fstream>
#include <iterator>
#include <regex>

#include "tests/config/device_xml.h"

namespace qov::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

std::string document() {
  std::ifstream file(QOV_DEVICE_DOC);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The first block of a language.
std::string block(const std::string& language) {
  const std::string text = document();
  const std::string fence = "```" + language + "\n";
  const std::size_t begin = text.find(fence);
  if (begin == std::string::npos) {
    return "";
  }
  const std::size_t start = begin + fence.size();
  return text.substr(start, text.find("```", start) - start);
}

class DeviceDoc : public DeviceXmlTest {};

TEST_F(DeviceDoc, ShowsWhatIsFoundInItsFile) {
  write(block("xml"));
  const std::string code = block("cpp");
  // getDeviceItem("router", "PeriodMs", period);    // 250
  const std::regex call(R"re(\("(\w+)", "(\w+)", period\); *// (\w+))re");
  const std::sregex_iterator end;
  int calls = 0;
  for (std::sregex_iterator at(code.begin(), code.end(), call); at != end; ++at, ++calls) {
    EXPECT_EQ(find((*at)[1], (*at)[2]), (*at)[3]) << at->str();
  }
  EXPECT_EQ(calls, 3);
  EXPECT_THAT(list("router"), ElementsAre(Pair("PeriodMs", "250")));
}

}  // namespace
}  // namespace qov::test
