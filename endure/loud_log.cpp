#include "endure/loud_log.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "tests/support/files.h"

namespace qov::endure {
namespace {

constexpr std::string_view kReloaded = "Log settings in force";
constexpr std::string_view kRefused = "since the log file could not be written: ";

/// Calls `found` with the rest of `text` behind each place where `what` stands.
template <class Found>
void eachPlace(const std::string& text, std::string_view what, const Found& found) {
  for (std::size_t place = text.find(what); place != std::string::npos;
       place = text.find(what, place + 1)) {
    found(text.c_str() + place + what.size());
  }
}

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

std::string record(std::size_t thread, std::uint64_t number) {
  return "record " + std::to_string(number) + " of thread " + std::to_string(thread);
}

}  // namespace

void LoudLog::add(const std::filesystem::path& file, bool isLog) {
  const std::string text = test::readFile(file);
  std::array<std::vector<std::uint64_t>, kLoudThreads> numbers;
  eachPlace(text, kLoudBegin, [&](const char* rest) {
    const std::uint64_t thread = takeNumber(rest, ':');
    const std::uint64_t number = takeNumber(rest, ':');
    if (thread < kLoudThreads && takeNumber(rest, ':') == thread && number != 0 &&
        takeNumber(rest, ';') == number) {
      numbers[thread].push_back(number);
      ++records_;
      on_errors_ += isLog ? 0 : 1;
    }
  });
  for (std::size_t thread = 0; thread < kLoudThreads; ++thread) {
    if (!numbers[thread].empty()) {
      parts_[thread].push_back({file.string(), isLog, std::move(numbers[thread])});
    }
  }
  eachPlace(text, kReloaded, [&](const char*) { ++reloads_; });
  eachPlace(text, kRefused, [&](const char* rest) { refused_ += std::atoll(rest); });
}

std::string LoudLog::complaint(const Promise& promise) const {
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
  std::vector<int> times(last + 1);
  std::uint64_t first = last + 1;
  for (const Part& part : parts_[thread]) {
    for (const std::uint64_t number : part.numbers) {
      if (number > last || ++times[number] > 1) {
        return record(thread, number) + " comes once too often, in " + part.file;
      }
    }
    first = std::min(first, part.numbers.front());
  }
  for (std::uint64_t number = promise.keeps_all ? 1 : first; number <= last; ++number) {
    const bool isAlwaysShown = promise.greatest_level <= shownUpTo(loudLevelOf(number));
    if (times[number] == 0 && isAlwaysShown) {
      ++missing;
      if (!promise.loses_errors) {
        return record(thread, number) + " of " + std::to_string(last) + " is missing";
      }
    }
  }
  return {};
}

}  // namespace qov::endure
