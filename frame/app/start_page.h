#ifndef QOV_FRAME_APP_START_PAGE_H
#define QOV_FRAME_APP_START_PAGE_H

#include <semaphore.h>
#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "frame/env/current_step.h"

namespace qov {

/// The last lines of a text, as many whole ones as there is room for. It holds no pointers, so that
/// processes can share it.
///
/// Thread: one at a time.
class LastLines {
 public:
  /// A line that is too long alone is cut.
  void add(std::string_view line);
  /// Every line with its end.
  std::string text() const { return {text_.data(), size_}; }

  static constexpr std::size_t kRoom = 16384;

 private:
  std::array<char, kRoom> text_;
  std::size_t size_ = 0;
};

enum class StartOutcome { kOpen, kStarted, kFailed, kNotForked };

/// What a daemon and its starter share until it is known whether the daemon runs. A daemon closes
/// every descriptor and its parents end, but a shared mapping stays.
struct StartPage {
  sem_t news;  ///< posted when a process has ended or the outcome is known
  std::atomic<StartOutcome> outcome{StartOutcome::kOpen};
  std::atomic<pid_t> daemon{0};
  std::atomic<int> signalToPass{0};  ///< one that the starter has got before it knew the daemon
  LastLines complaints;              ///< the daemon's
  LastLines verdict;                 ///< of the process that watches it
  CurrentStep::Text steps{};         ///< what the daemon is at

  /// False, and nothing changes, when there is one already.
  bool settle(StartOutcome result);
};

/// What ended too early: " before it ran, while loading module qovp_a".
std::string beforeItRan(const std::string& steps);

struct UnmapStartPage {
  void operator()(StartPage* page) const;
};
using StartPagePtr = std::unique_ptr<StartPage, UnmapStartPage>;

/// Null, with errno set, when there is no memory.
StartPagePtr makeStartPage();

}  // namespace qov

#endif
