#include "tests/wireshark/qovctl_decode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "tests/support/files.h"

namespace qov::test {
namespace {

constexpr int kBadData = 6;

}  // namespace

Decoded decodeWithQovctl(const std::string& bytes) {
  const TemporaryDirectory directory;
  writeFile(directory.file("bytes"), bytes);
  const Finished finished =
      run({QOV_QOVCTL, "decode", "--json", "--kind", "v3", directory.file("bytes")});
  Decoded decoded;
  if (!finished.out.empty()) {
    Json::Value document;
    std::istringstream(finished.out) >> document;
    EXPECT_EQ(document["kind"], "v3");
    decoded.messages.assign(document["messages"].begin(), document["messages"].end());
  }
  EXPECT_TRUE(finished.status == 0 || finished.status == kBadData) << finished.err;
  if (finished.status != 0) {
    decoded.refused = finished.err;
  }
  return decoded;
}

void expectAgreement(const std::vector<Shown>& shown, const Decoded& decoded) {
  const std::size_t good = decoded.messages.size();
  if (decoded.refused.empty()) {
    ASSERT_EQ(shown.size(), good);
  } else {
    ASSERT_GT(shown.size(), good);
    const std::vector<std::string> experts = shown[good].experts();
    EXPECT_TRUE(std::any_of(experts.begin(), experts.end(),
                            [&](const std::string& expert) {
                              return decoded.refused.find(": " + expert + ": ") !=
                                     std::string::npos;
                            }))
        << decoded.refused << ::testing::PrintToString(experts);
  }
  for (std::size_t i = 0; i < good; ++i) {
    ASSERT_EQ(meaningOf(shown[i].tree), decoded.messages[i]) << "message " << i;
  }
}

}  // namespace qov::test
