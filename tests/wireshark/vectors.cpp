#include "tests/wireshark/vectors.h"

#include "tests/vectors/vector_file.h"

namespace qov::test {

std::vector<StreamVector> vectorsOfV3() {
  std::vector<StreamVector> vectors;
  for (const std::string& name : tests::vectorNames(".json")) {
    const tests::Vector file = tests::readVector(name);
    if (file.meaning["kind"] != "v3") {
      continue;
    }
    StreamVector vector;
    vector.name = name;
    vector.bytes.assign(file.bytes.begin(), file.bytes.end());
    const Json::Value& messages = file.meaning["messages"];
    vector.messages.assign(messages.begin(), messages.end());
    vector.refused = file.meaning.get("refused", "").asString();
    vectors.push_back(vector);
  }
  return vectors;
}

}  // namespace qov::test
