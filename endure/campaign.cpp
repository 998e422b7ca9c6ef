#include "endure/campaign.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <iostream>

namespace qov::endure {

Campaign::Campaign(int argc, char** argv) {
  CLI::App options;
  std::int64_t seconds = 0;
  options.add_option("--seconds", seconds)->required()->check(CLI::PositiveNumber);
  options.add_option("--seed", seed_)->required();
  options.add_option("--folder", folder_)->required()->check(CLI::ExistingDirectory);
  try {
    options.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    std::exit(options.exit(error) == 0 ? 0 : 2);
  }
  duration_ = std::chrono::seconds(seconds);
  random_.seed(seed_);
  ::setenv("TMPDIR", folder_.c_str(), 1);
  beginTime();
}

Figure& Campaign::figure(const std::string& name) {
  figures_.emplace_back();
  figures_.back().name = name;
  return figures_.back().value;
}

void Campaign::beginTime() {
  start_ = Clock::now();
  next_line_ = start_ + std::chrono::minutes(1);
}

bool Campaign::goesOn() {
  const Clock::time_point now = Clock::now();
  if (now >= next_line_) {
    printFigures();
    next_line_ += std::chrono::minutes(1);
  }
  return !failed_ && now < start_ + duration_;
}

void Campaign::fail(const std::string& what) {
  failed_ = true;
  const std::lock_guard<std::mutex> lock(output_);
  std::cout << "FAILED: " << what << std::endl;
}

void Campaign::keepIfLost(const std::filesystem::path& folder) const {
  namespace fs = std::filesystem;
  if (failed_ || std::uncaught_exceptions() > 0) {
    std::error_code error;
    std::error_code walk;
    // Called while an exception is on its way: no failure of the disk may be another one.
    for (fs::recursive_directory_iterator entry(folder, walk), end; entry != end;
         entry.increment(walk)) {
      const fs::path copy = folder_ / entry->path().lexically_relative(folder);
      if (entry->is_directory(error)) {
        fs::create_directories(copy, error);
      } else if (entry->is_regular_file(error) && !fs::copy_file(*entry, copy, error)) {
        std::cout << "not kept: " << entry->path() << ": " << error.message() << std::endl;
      }
    }
    if (walk) {
      std::cout << "not kept: the rest of " << folder << ": " << walk.message() << std::endl;
    }
  }
}

int Campaign::end() {
  printFigures();
  return failed_ ? 1 : 0;
}

void Campaign::printFigures() {
  const std::lock_guard<std::mutex> lock(output_);
  const auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start_).count();
  std::cout << "seconds=" << seconds;
  for (const NamedFigure& figure : figures_) {
    std::cout << ' ' << figure.name << '=' << figure.value;
  }
  std::cout << notWatched_ << std::endl;
}

int runCampaign(int argc, char** argv, const std::function<void(Campaign&)>& run) noexcept try {
  Campaign campaign(argc, argv);
  try {
    run(campaign);
  } catch (const std::exception& error) {
    campaign.fail(error.what());
  }
  return campaign.end();
} catch (...) {
  std::cout << "FAILED: an exception that is no std::exception, or no memory" << std::endl;
  return 1;
}

}  // namespace qov::endure
