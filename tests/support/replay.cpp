// Gives inputs to a fuzz target where libFuzzer is not there to do it: each file of the folders
// once, then, for a while, files that are altered at random:
//   <program> [-max_total_time=<seconds>] [-seed=<number>] <folder>...
// Standard error names the file that is given; a program that ends early has named it last. An
// altered one lies in the working folder then, as <program>.input.

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/fuzz.h"

namespace fs = std::filesystem;

namespace {

using Input = std::vector<std::uint8_t>;

std::vector<fs::path> filesIn(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  if (files.empty()) {
    throw std::runtime_error(folder.string() + " has no inputs");
  }
  return files;
}

/// What it is given is of its size to the byte, so that a sanitizer sees a read behind it.
void give(const Input& input) {
  const Input exact(input);
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

Input replay(const fs::path& file) {
  std::cerr << file.string() << std::endl;
  const std::string bytes = qov::test::readFile(file);
  Input input(bytes.begin(), bytes.end());
  give(input);
  return input;
}

/// The same sequence of inputs for the same seed and files.
class Mutator {
 public:
  Mutator(const std::vector<Input>& inputs, unsigned long seed) : inputs_(inputs), random_(seed) {}

  Input next() {
    Input input = any();
    for (std::size_t changes = 1 + below(4); changes > 0; --changes) {
      change(input);
    }
    return input;
  }

 private:
  std::size_t below(std::size_t end) { return random_() % end; }
  const Input& any() { return inputs_[below(inputs_.size())]; }
  std::uint8_t byte() {
    constexpr std::uint8_t kTelling[] = {0, 1, 0x7f, 0x80, 0xff};
    return below(2) == 0 ? kTelling[below(std::size(kTelling))]
                         : static_cast<std::uint8_t>(below(256));
  }

  void change(Input& input) {
    const auto place = input.begin() + static_cast<std::ptrdiff_t>(below(input.size() + 1));
    const auto left = static_cast<std::size_t>(input.end() - place);
    switch (below(4)) {
      case 0:
        input.insert(place, byte());
        break;
      case 1:
        input.erase(
            place, place + static_cast<std::ptrdiff_t>(below(std::min<std::size_t>(left, 32) + 1)));
        break;
      case 2:
        if (left > 0) {
          *place = below(2) == 0 ? byte() : static_cast<std::uint8_t>(*place ^ 1U << below(8));
        }
        break;
      default: {
        // The end of another input, so that what is in it is where it does not belong.
        const Input& other = any();
        input.erase(place, input.end());
        input.insert(input.end(),
                     other.begin() + static_cast<std::ptrdiff_t>(below(other.size() + 1)),
                     other.end());
      }
    }
  }

  const std::vector<Input>& inputs_;
  std::mt19937_64 random_;
};

void mutate(const std::vector<Input>& inputs, unsigned long seed, std::chrono::seconds time,
            const fs::path& kept) {
  std::cerr << kept.string() << ", seed " << seed << std::endl;
  const auto end = std::chrono::steady_clock::now() + time;
  Mutator mutator(inputs, seed);
  while (std::chrono::steady_clock::now() < end) {
    const Input input = mutator.next();
    std::ofstream(kept, std::ios::binary)
        .write(reinterpret_cast<const char*>(input.data()),
               static_cast<std::streamsize>(input.size()));
    give(input);
  }
  fs::remove(kept);
}

/// The value of "-<name>=<value>" among the arguments, 0 without it. Options of libFuzzer's that
/// this program has no use for are left alone.
unsigned long option(const std::vector<std::string>& arguments, const std::string& name) {
  const std::string start = "-" + name + "=";
  for (const std::string& argument : arguments) {
    if (argument.compare(0, start.size(), start) == 0) {
      return std::stoul(argument.substr(start.size()));
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) try {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  std::vector<Input> inputs;
  for (const std::string& argument : arguments) {
    if (argument.front() == '-') {
      continue;
    }
    for (const fs::path& file : filesIn(argument)) {
      inputs.push_back(replay(file));
    }
  }
  const std::chrono::seconds time(option(arguments, "max_total_time"));
  if (time.count() > 0) {
    mutate(inputs, option(arguments, "seed"), time,
           fs::path(argv[0]).filename().string() + ".input");
  }
  return 0;
} catch (const std::exception& error) {
  std::cerr << error.what() << std::endl;
  return 1;
}
