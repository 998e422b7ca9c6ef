#ifndef QOV_TESTS_MODULES_STATUS_TMUX_H
#define QOV_TESTS_MODULES_STATUS_TMUX_H

#include <string>
#include <vector>

#include "tests/support/files.h"

namespace qov::test {

/// A terminal with an interactive shell in it, whose folder is folder(). It goes with the object.
/// What tmux does not do is a failure of the test.
class Tmux {
 public:
  /// Whether there is one.
  static bool isInstalled();

  Tmux(int columns, int rows);
  ~Tmux();
  Tmux(const Tmux&) = delete;
  Tmux& operator=(const Tmux&) = delete;

  const TemporaryDirectory& folder() const { return folder_; }

  /// Types the text.
  void type(const std::string& text) const;
  /// Presses a key, as "C-c" or "Enter".
  void press(const std::string& key) const { run({"send-keys", key}); }
  void resize(int columns, int rows) const;
  /// What it shows, a line for each row without the blanks at its end.
  std::string screen() const { return run({"capture-pane", "-p"}); }
  bool shows(const std::string& text) const;
  /// What a format of tmux is here.
  std::string tell(const std::string& format) const { return run({"display", "-p", format}); }
  /// Takes the terminal away from whoever has it.
  void end() const { run({"kill-server"}); }

 private:
  /// What the command prints.
  std::string run(std::vector<std::string> command) const;

  const TemporaryDirectory folder_;
};

}  // namespace qov::test

#endif
