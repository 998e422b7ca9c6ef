#ifndef QOV_TESTS_WIRESHARK_MUTATIONS_H
#define QOV_TESTS_WIRESHARK_MUTATIONS_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace qov::test {

/// V3 messages that are nearly right: those of a folder, changed at random. The same ones for the
/// same seed.
class Mutations {
 public:
  /// Throws std::runtime_error if the folder has no message.
  Mutations(const std::filesystem::path& folder, std::uint64_t seed);

  /// The next one; never empty.
  std::string next();

 private:
  std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }
  const std::string& any() { return messages_[below(messages_.size())]; }
  void change(std::string& bytes);

  std::vector<std::string> messages_;
  std::mt19937_64 random_;
};

}  // namespace qov::test

#endif
