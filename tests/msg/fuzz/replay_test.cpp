#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "tests/msg/fuzz/decode_target.h"
#include "tests/vectors/vector_file.h"

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> inputsIn(const char* folder) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(QOV_FUZZ_DIR) / folder)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void replay(const fs::path& file) {
  SCOPED_TRACE(file.filename().string());
  std::ifstream in(file, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
  ASSERT_FALSE(bytes.empty());
  EXPECT_EQ(
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
}

TEST(Fuzz, ReplaysItsCorpus) {
  const std::vector<fs::path> inputs = inputsIn("corpus");
  ASSERT_FALSE(inputs.empty());
  for (const fs::path& file : inputs) {
    replay(file);
  }
}

TEST(Fuzz, ReplaysItsRegressions) {
  const std::vector<fs::path> inputs = inputsIn("regressions");
  ASSERT_FALSE(inputs.empty());
  for (const fs::path& file : inputs) {
    replay(file);
  }
}

TEST(Fuzz, ReplaysTheVectors) {
  const std::map<std::string, unsigned char> choices{{"v3", 0}, {"internal", 1}, {"om", 4}};
  const std::vector<std::string> names = qov::tests::vectorNames(".hex");
  ASSERT_FALSE(names.empty());
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const qov::tests::Vector vector = qov::tests::readVector(name);
    std::vector<unsigned char> input{choices.at(vector.meaning["kind"].asString())};
    input.insert(input.end(), vector.bytes.begin(), vector.bytes.end());
    EXPECT_EQ(LLVMFuzzerTestOneInput(input.data(), input.size()), 0);
    input[0] |= 2;
    EXPECT_EQ(LLVMFuzzerTestOneInput(input.data(), input.size()), 0);
  }
}

}  // namespace
