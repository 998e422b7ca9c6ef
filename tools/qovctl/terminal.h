#ifndef QOV_TOOLS_QOVCTL_TERMINAL_H
#define QOV_TOOLS_QOVCTL_TERMINAL_H

#include <chrono>
#include <memory>

#include "modules/status/descriptor.h"
#include "tools/qovctl/top_screen.h"

struct screen;  // of ncurses

namespace qov::ctl {

/// The terminal of standard input and output as one screen, without a cursor. The destructor gives
/// it back as it was. The signals that end programs, that of ^Z and that of a new size come as keys
/// do; they stay blocked, as the program ends behind it.
///
/// Thread: the main thread of a program without others; one object.
/// Owns:   the terminal's settings.
/// Errors: Failure, by the constructor.
class Terminal {
 public:
  using Clock = std::chrono::steady_clock;

  /// Whether standard input and output are a terminal.
  static bool isThere();

  Terminal();

  /// The size that it has now.
  ScreenSize size() const;

  /// Shows `top` from the first line on and `bottom` down to the last.
  void show(const Screen& top, const Screen& bottom);

  static constexpr int kNoKey = -1;
  static constexpr int kEnd = -2;
  static constexpr int kShowAnew = -3;
  /// The next key; kNoKey when it is `time`; kEnd for a signal that ends programs, or when the
  /// terminal is gone; kShowAnew when it may have another size or has been somebody else's.
  int keyBefore(Clock::time_point time);

  /// A descriptor that can be read when there is a key or a signal.
  int input() const { return input_.get(); }

 private:
  struct GiveBack {
    void operator()(screen* terminal) const;
  };

  /// What a signal that has come is for keyBefore().
  int takeSignal() const;

  const status::Descriptor signals_;
  const status::Descriptor input_;
  const std::unique_ptr<screen, GiveBack> screen_;
};

}  // namespace qov::ctl

#endif
