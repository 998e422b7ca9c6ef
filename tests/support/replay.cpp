// Gives inputs to a fuzz target once each, where libFuzzer is not there to do it:
//   <program> [-<option>...] <folder>...
// The options are libFuzzer's and are ignored. The last line of standard error names the input that
// ends the program, if one does.

#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/fuzz.h"

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> inputsIn(const fs::path& folder) {
  std::vector<fs::path> inputs;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) {
      inputs.push_back(entry.path());
    }
  }
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

/// False if the folder has none.
bool replay(const fs::path& folder) {
  const std::vector<fs::path> inputs = inputsIn(folder);
  for (const fs::path& input : inputs) {
    std::cerr << input.string() << std::endl;
    const std::string bytes = qov::test::readFile(input);
    // Of its size to the byte, so that a sanitizer sees a read behind it.
    const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
  }
  return !inputs.empty();
}

}  // namespace

int main(int argc, char** argv) try {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  for (const std::string& argument : arguments) {
    if (argument.front() != '-' && !replay(argument)) {
      std::cerr << argument << " has no inputs" << std::endl;
      return 1;
    }
  }
  return 0;
} catch (const std::exception& error) {
  std::cerr << error.what() << std::endl;
  return 1;
}
