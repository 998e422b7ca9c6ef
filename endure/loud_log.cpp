#include "endure/loud_log.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "tests/support/counts.h"
#include "tests/support/files.h"

namespace qov::endure {
namespace {

constexpr std::string_view kReloaded = "Log settings in force";
constexpr std::string_view kRefused = "since the log file could not be written: ";

/// The number at `text`, which is moved behind it and the character `end`; 0 if it is not there.
std::uint64_t takeNumber(const char*& text, char end) {
  char* behind = nullptr;
  const std::uint64_t number = std::strtoull(text, &behind, 10);
  if (behind == text || *behind != end) {
    return 0;
  }
  text = behind + 1;
  return number;
}

/// The fields of a record of the module's, with 0 in place of each number.
std::string headOf(const std::string& agent, LoudLevel level, bool isJson) {
  const std::string name = nameOf(level);
  return isJson ? R"({"time":"0-0-0T0:0:0+0:0","id":0,"level":")" + name +
                      R"(","kit":"QOVPUBLIC","function":"beLoud","line":0,)"
                      R"("process":")" +
                      agent + R"(","thread":0,"message":")"
                : "[0/0/0 0:0:0][0][" + name + "][QOVPUBLIC][beLoud,0][][" + agent + ":0] ";
}

std::string withoutNumbers(std::string_view text) {
  std::string rest;
  for (const char each : text) {
    if (each < '0' || each > '9') {
      rest += each;
    } else if (rest.empty() || rest.back() != '0') {
      rest += '0';
    }
  }
  return rest;
}

std::string record(std::size_t thread, std::uint64_t number) {
  return "record " + std::to_string(number) + " of thread " + std::to_string(thread);
}

}  // namespace

int LoudLog::addFolder(const std::filesystem::path& folder) {
  int files = 0;
  for (const auto& file : std::filesystem::directory_iterator(folder)) {
    add(file.path(), true);
    ++files;
  }
  return files;
}

LoudNumbers LoudLog::told(const std::filesystem::path& root) {
  LoudNumbers lasts{};
  std::istringstream text(test::readFile(root / "loud"));
  for (std::uint64_t& last : lasts) {
    text >> last;
  }
  if (!text) {
    throw std::runtime_error("the module has not told what it has logged in " +
                             (root / "loud").string());
  }
  return lasts;
}

void LoudLog::add(const std::filesystem::path& file, bool isLog) {
  const std::string text = test::readFile(file);
  Numbers numbers;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = text.find('\n', begin);
    const std::string_view line = std::string_view(text).substr(begin, end - begin);
    begin = std::min(end, text.size() - 1) + 1;
    std::string& torn = isLog ? torn_ : torn_on_errors_;
    if ((end == std::string::npos || !isWhole(line, numbers)) && torn.empty()) {
      torn = file.string() + " has a record that is not whole: " + std::string(line);
    }
  }
  for (std::size_t thread = 0; thread < kLoudThreads; ++thread) {
    if (!numbers[thread].empty()) {
      const auto count = static_cast<std::int64_t>(numbers[thread].size());
      records_ += count;
      on_errors_ += isLog ? 0 : count;
      parts_[thread].push_back({file.string(), isLog, std::move(numbers[thread])});
    }
  }
  reloads_ += test::timesOf(kReloaded, text);
  for (std::size_t at = 0; (at = text.find(kRefused, at)) != std::string::npos;) {
    at += kRefused.size();
    refused_ += std::atoll(text.c_str() + at);
  }
}

/// Whether it is one record, from its first field to its last character. One of the module's has to
/// be as it was logged, and adds its number.
bool LoudLog::isWhole(std::string_view line, Numbers& numbers) const {
  const bool isJson = line.substr(0, 1) == "{";
  const std::size_t place = line.find(kLoudBegin);
  if (place == std::string_view::npos) {
    return isJson ? line.substr(line.size() - 2) == "\"}" : line.substr(0, 1) == "[";
  }
  const char* rest = line.data() + place + std::string_view(kLoudBegin).size();
  const std::uint64_t thread = takeNumber(rest, ':');
  const std::uint64_t number = takeNumber(rest, ':');
  const std::uint64_t length = takeNumber(rest, ';');
  if (thread >= kLoudThreads || number == 0 || length > line.size() ||
      withoutNumbers(line.substr(0, place)) != headOf(agent_, loudLevelOf(number), isJson) ||
      line.substr(place) != loudText(thread, number, length) + (isJson ? "\"}" : "")) {
    return false;
  }
  numbers[thread].push_back(number);
  return true;
}

LoudNumbers LoudLog::lasts() const {
  LoudNumbers lasts{};
  for (std::size_t thread = 0; thread < kLoudThreads; ++thread) {
    for (const Part& part : parts_[thread]) {
      lasts[thread] = std::max(lasts[thread], part.numbers.back());
    }
  }
  return lasts;
}

std::string LoudLog::complaint(const Promise& promise) const {
  // Of what was on its way to a reader that was killed, a part may be there.
  if (!torn_.empty() || (!torn_on_errors_.empty() && !promise.loses_errors)) {
    return torn_ + torn_on_errors_;
  }
  if (!promise.is_disturbed && refused_ + (promise.has_terminal ? 0 : on_errors_) > 0) {
    return std::to_string(refused_) + " records were refused and " + std::to_string(on_errors_) +
           " are on standard error, for no reason";
  }
  std::int64_t missing = 0;
  for (std::size_t thread = 0; thread < kLoudThreads; ++thread) {
    std::string why = whyNotInOrder(parts_[thread]);
    if (why.empty()) {
      why = whyNotOnce(thread, promise, missing);
    }
    if (!why.empty()) {
      return why;
    }
  }
  // What was refused went to standard error, and was lost if nobody read that.
  if (!promise.has_terminal && missing + on_errors_ > refused_) {
    return std::to_string(missing) + " records are missing and " + std::to_string(on_errors_) +
           " on standard error, but only " + std::to_string(refused_) + " were counted";
  }
  return {};
}

/// The files of the log, put into the order of their numbers, have to be in order together.
std::string LoudLog::whyNotInOrder(const Parts& parts) {
  std::vector<const Part*> files;
  for (const Part& part : parts) {
    const auto later = std::adjacent_find(part.numbers.begin(), part.numbers.end(),
                                          [](auto one, auto other) { return one >= other; });
    if (later != part.numbers.end()) {
      return part.file + " has " + std::to_string(*std::next(later)) + " behind " +
             std::to_string(*later);
    }
    if (part.is_log) {
      files.push_back(&part);
    }
  }
  std::sort(files.begin(), files.end(), [](const Part* one, const Part* other) {
    return one->numbers.front() < other->numbers.front();
  });
  const auto later =
      std::adjacent_find(files.begin(), files.end(), [](const Part* one, const Part* other) {
        return one->numbers.back() >= other->numbers.front();
      });
  return later == files.end()
             ? std::string()
             : (*later)->file + " and " + (*std::next(later))->file + " have records of one time";
}

std::string LoudLog::whyNotOnce(std::size_t thread, const Promise& promise,
                                std::int64_t& missing) const {
  const std::uint64_t last = promise.last[thread];
  std::uint64_t first = promise.keeps_all ? promise.first[thread] : last + 1;
  for (const Part& part : parts_[thread]) {
    first = promise.keeps_all ? first : std::min(first, part.numbers.front());
  }
  std::vector<bool> isThere(std::max(first, last + 1) - first);  // from `first` on
  for (const Part& part : parts_[thread]) {
    for (const std::uint64_t number : part.numbers) {
      if (number < first || number > last || isThere[number - first]) {
        return record(thread, number) + " comes once too often, in " + part.file;
      }
      isThere[number - first] = true;
    }
  }
  for (std::uint64_t number = first; number <= last; ++number) {
    const bool isAlwaysShown = promise.greatest_level <= shownUpTo(loudLevelOf(number));
    if (!isThere[number - first] && isAlwaysShown) {
      ++missing;
      if (!promise.loses_errors) {
        return record(thread, number) + " of " + std::to_string(last) + " is missing";
      }
    }
  }
  return {};
}

}  // namespace qov::endure
