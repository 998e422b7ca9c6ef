#ifndef QOV_ENDURE_CAMPAIGN_H
#define QOV_ENDURE_CAMPAIGN_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>
#include <random>
#include <string>

namespace qov::endure {

/// One number of a campaign, in the line of figures under its name. Any thread changes it.
using Figure = std::atomic<std::int64_t>;

/// One run of a campaign, as scripts/endure starts it:
///
///   <program> --seconds N --seed S --folder DIR
///
/// What is random comes from the seed alone, so that a failure can be repeated with it. DIR is an
/// empty folder of the run's own, where it leaves what tells how it failed. Most temporary
/// directories are made there, too.
///
/// Thread: the main thread's, but for figures, which any thread changes, and fail().
class Campaign {
 public:
  /// Reads the command line; ends the process with status 2 and one line if it is wrong.
  Campaign(int argc, char** argv);

  Campaign(const Campaign&) = delete;
  Campaign& operator=(const Campaign&) = delete;

  std::chrono::seconds duration() const { return duration_; }
  std::uint64_t seed() const { return seed_; }
  std::mt19937_64& random() { return random_; }
  /// A number from `least` to `most`.
  std::int64_t between(std::int64_t least, std::int64_t most) {
    return std::uniform_int_distribution<std::int64_t>(least, most)(random_);
  }
  const std::filesystem::path& folder() const { return folder_; }

  /// A figure with a name of its own, which lives as long as the campaign. They stand in the line
  /// of figures in the order in which they were made.
  Figure& figure(const std::string& name);

  /// The time begins now and not when the campaign was made.
  void beginTime();

  /// Whether there is time left and nothing has failed. Prints the line of figures once a minute:
  /// to be called at least every few seconds.
  bool goesOn();

  /// Says what must not be; the campaign is lost.
  void fail(const std::string& what);
  bool failed() const { return failed_; }

  /// Says what this run has not looked at, behind the figures. It does not fail for that.
  void notWatched(const std::string& what) { notWatched_ += " not watched: " + what; }

  /// If the campaign is lost: copies the folders and files in `folder` to folder(), and what links
  /// to files lead to. Sockets and pipes are left out.
  void keepIfLost(const std::filesystem::path& folder) const;

  /// Prints the last line of figures; the result is the process's exit status.
  int end();

 private:
  using Clock = std::chrono::steady_clock;
  struct NamedFigure {
    std::string name;
    Figure value{0};
  };

  void printFigures();

  std::chrono::seconds duration_{0};
  std::uint64_t seed_ = 0;
  std::filesystem::path folder_;
  std::mt19937_64 random_;
  std::deque<NamedFigure> figures_;
  std::string notWatched_;
  Clock::time_point start_;
  Clock::time_point next_line_;
  std::mutex output_;
  std::atomic<bool> failed_{false};
};

/// What main() of a campaign does: what `run` throws is a failure of the campaign, too.
int runCampaign(int argc, char** argv, const std::function<void(Campaign&)>& run) noexcept;
/// The same with run() of a `Kind`, which is made of the campaign.
template <class Kind>
int runCampaign(int argc, char** argv) noexcept {
  return runCampaign(argc, argv, [](Campaign& campaign) { Kind(campaign).run(); });
}

}  // namespace qov::endure

#endif
