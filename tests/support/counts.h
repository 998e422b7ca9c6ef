#ifndef QOV_TESTS_SUPPORT_COUNTS_H
#define QOV_TESTS_SUPPORT_COUNTS_H

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qov::test {

/// How many entries `folder` has.
inline std::ptrdiff_t entriesOf(const std::filesystem::path& folder) {
  const std::filesystem::directory_iterator all(folder);
  return std::distance(begin(all), end(all));
}

/// How often `part` stands in `text`.
inline int timesOf(std::string_view part, std::string_view text) {
  int times = 0;
  for (std::size_t at = text.find(part); at != std::string_view::npos;
       at = text.find(part, at + 1)) {
    ++times;
  }
  return times;
}

/// The number behind `key` in a file of /proc that says `text`. Throws std::runtime_error if the
/// key is not there, as in the file of a process that is gone.
inline long numberBehind(const std::string& key, const std::string& text) {
  const std::size_t place = text.find(key);
  if (place == std::string::npos) {
    throw std::runtime_error("there is no " + key.substr(key.find_first_not_of('\n')) +
                             " in: " + text);
  }
  return std::stol(text.substr(place + key.size()));
}

}  // namespace qov::test

#endif
