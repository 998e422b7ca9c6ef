#ifndef QOV_ENDURE_LOUD_LOG_H
#define QOV_ENDURE_LOUD_LOG_H

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "endure/loud.h"

namespace qov::endure {

using LoudNumbers = std::array<std::uint64_t, kLoudThreads>;

/// What an agent with the module "loud" has logged, in the files of its log and on standard error.
///
/// Thread: a value.
/// Owns:   the numbers that it has found.
/// Errors: complaint() has what is wrong, unless said otherwise.
class LoudLog {
 public:
  /// What is known of the agent.
  struct Promise {
    LoudNumbers last{};             ///< each thread's
    int greatest_level = 5;         ///< "LogLevel" that has been in force
    bool keeps_all = true;          ///< no rotated file was removed
    bool loses_errors = false;      ///< standard error was without a reader for a while
    bool has_terminal = false;      ///< records went to standard error by "SendTerminal", too
    bool is_disturbed = false;      ///< the disk was full for a while, or files and folder moved
    LoudNumbers first{1, 1, 1, 1};  ///< each thread's, if no file was removed
  };

  /// Of the agent of that name.
  explicit LoudLog(std::string agent) : agent_(std::move(agent)) {}

  /// The files of a folder of the log; returns how many there are.
  int addFolder(const std::filesystem::path& folder);
  /// What standard error has.
  void addErrors(const std::filesystem::path& file) { add(file, false); }

  /// Of each thread the last number, as the module in `root` told it at its end. Throws
  /// std::runtime_error if it has not.
  static LoudNumbers told(const std::filesystem::path& root);

  /// Of each thread the last number that there is; 0 for none.
  LoudNumbers lasts() const;
  std::int64_t records() const { return records_; }
  std::int64_t reloads() const { return reloads_; }
  /// Of records that the files did not take, as the log tells it.
  std::int64_t refused() const { return refused_; }

  /// Empty when each record of each thread is there once and in order, or counted.
  std::string complaint(const Promise& promise) const;

 private:
  /// The numbers of one thread in one file, in their order.
  struct Part {
    std::string file;
    bool is_log;
    std::vector<std::uint64_t> numbers;
  };
  using Parts = std::vector<Part>;

  using Numbers = std::array<std::vector<std::uint64_t>, kLoudThreads>;

  void add(const std::filesystem::path& file, bool isLog);
  bool isWhole(std::string_view line, Numbers& numbers) const;
  static std::string whyNotInOrder(const Parts& parts);
  std::string whyNotOnce(std::size_t thread, const Promise& promise, std::int64_t& missing) const;

  const std::string agent_;
  std::array<Parts, kLoudThreads> parts_;
  std::int64_t records_ = 0;
  std::int64_t on_errors_ = 0;
  std::int64_t reloads_ = 0;
  std::int64_t refused_ = 0;
  std::string torn_;            ///< the first line of a log that is not whole, and its file
  std::string torn_on_errors_;  ///< the same of standard error
};

}  // namespace qov::endure

#endif
