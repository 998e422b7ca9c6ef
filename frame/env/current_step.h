#ifndef QOV_FRAME_ENV_CURRENT_STEP_H
#define QOV_FRAME_ENV_CURRENT_STEP_H

#include <array>
#include <cstddef>
#include <string>

namespace qov {

/// Something that may hang: "stopping module 20 (collector)". Steps that are open tell whoever
/// watches over the start or the stop of the process what it is at.
///
/// Thread: made and destroyed by one thread; any number of threads at once.
/// Owns:   its text, up to 159 characters.
/// Errors: none.
class CurrentStep {
 public:
  using Text = std::array<char, 160>;

  explicit CurrentStep(const char* format, ...) __attribute__((format(printf, 2, 3)));
  ~CurrentStep();

  CurrentStep(const CurrentStep&) = delete;
  CurrentStep& operator=(const CurrentStep&) = delete;

  /// The open steps of all threads, the oldest first, with a comma in between, up to 1023
  /// characters; empty for none.
  static std::string open();

  /// Keeps what open() gives, up to 159 characters, in `place` until the next call; null for no
  /// place. Another process may read it there.
  static void showIn(Text* place);

 private:
  // Both under the lock of all steps and without memory, since steps must open and close where
  // there is none.
  /// Writes the steps up to `step` and gives their length.
  static std::size_t write(const CurrentStep* step, char* place, std::size_t room);
  static void show();

  Text text_{};
  // Guarded by the lock of all steps.
  CurrentStep* outer_;
};

}  // namespace qov

#endif
