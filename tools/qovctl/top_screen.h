#ifndef QOV_TOOLS_QOVCTL_TOP_SCREEN_H
#define QOV_TOOLS_QOVCTL_TOP_SCREEN_H

#include <json/value.h>

#include <cstddef>
#include <string>
#include <vector>

namespace qov::ctl {

// What "top" shows of a document of topDocument(): printable ASCII alone, with "?" for each other
// byte of what an agent tells.

struct ScreenSize {
  std::size_t columns;
  std::size_t rows;
};

struct ScreenLine {
  std::string text;
  bool strong = false;  ///< stands out: a heading, or what is wrong

  bool operator==(const ScreenLine& other) const {
    return text == other.text && strong == other.strong;
  }
};

using Screen = std::vector<ScreenLine>;

/// What modules are sorted by: their ids, or a figure, with the highest first.
enum class TopOrder { kId, kQueue, kBusy, kHandled, kOldest, kDropped };
const char* nameOf(TopOrder order);
/// The first one behind the last.
TopOrder after(TopOrder order);

/// The agent and its modules, who waits, what runs, what is slow, the links. A table without rows
/// is left out. No more lines, and no longer ones, than `size` has room for: columns that matter
/// less go first, rows that are left out are counted, and ">" ends what is cut.
/// Throws BadJson for a document that is none.
Screen topScreen(const Json::Value& document, TopOrder order, ScreenSize size);

/// `text` in lines of `columns`, all strong.
Screen notice(const std::string& text, std::size_t columns);

}  // namespace qov::ctl

#endif
