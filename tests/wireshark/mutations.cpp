#include "tests/wireshark/mutations.h"

#include <algorithm>
#include <stdexcept>

#include "tests/support/files.h"
#include "tests/tools/endpoint_client.h"

namespace qov::test {
namespace {

constexpr std::size_t kBytesOfHead = 28;
constexpr std::size_t kPlaceOfLength = 24;

}  // namespace

Mutations::Mutations(const std::filesystem::path& folder, std::uint64_t seed) : random_(seed) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file() && entry.file_size() > 0) {
      messages_.push_back(readFile(entry.path()));
    }
  }
  if (messages_.empty()) {
    throw std::runtime_error("no message is in " + folder.string());
  }
  // The folder gives them in any order.
  std::sort(messages_.begin(), messages_.end());
}

std::string Mutations::next() {
  std::string bytes = any();
  for (std::size_t changes = below(5); changes > 0; --changes) {
    change(bytes);
  }
  if (below(4) != 0 && bytes.size() >= kBytesOfHead) {
    bytes.replace(kPlaceOfLength, 4, le(bytes.size() - kBytesOfHead, 4));
  }
  if (below(8) == 0) {
    bytes += any();
  }
  return bytes;
}

void Mutations::change(std::string& bytes) {
  const std::size_t at = below(bytes.size());
  switch (below(5)) {
    case 0:
      bytes[at] = static_cast<char>(below(256));
      break;
    case 1:
      bytes[at] = static_cast<char>(bytes[at] + (below(2) == 0 ? 1 : -1));
      break;
    case 2:
      bytes.insert(at, 1 + below(12), static_cast<char>(below(256)));
      break;
    case 3:
      bytes.insert(at, bytes.substr(at, 1 + below(40)));
      break;
    default:
      // At least one byte stays.
      bytes.erase(std::max<std::size_t>(at, 1), 1 + below(12));
  }
}

}  // namespace qov::test
