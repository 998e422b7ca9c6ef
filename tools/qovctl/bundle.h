#ifndef QOV_TOOLS_QOVCTL_BUNDLE_H
#define QOV_TOOLS_QOVCTL_BUNDLE_H

#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/qovctl/tar_gz.h"

namespace qov::ctl {

/// A time in UTC, as strftime() has it.
std::string utcText(std::time_t time, const char* format);

/// What is collected for support, and what could not be had.
///
/// Thread: one.
/// Owns:   all of it, in memory.
/// Errors: what cannot be had is a line of missing(); else only std::bad_alloc.
class Bundle {
 public:
  /// Adds a text that is made now.
  void add(const std::string& name, const std::string& text);
  /// Adds the beginning of the file at `path`, as `of` makes it fit to be shown.
  void addFile(const std::string& name, const std::string& path,
               std::string (*of)(std::string_view) = nullptr);
  void add(ArchivedFile file) { files_.push_back(std::move(file)); }

  /// Runs `collect`; what it throws but for std::bad_alloc is missing.
  void attempt(const std::function<void()>& collect);
  void miss(const std::string& why) { missing_.push_back(why); }
  /// Says something of what is there.
  void note(const std::string& text) { notes_.push_back(text); }

  std::time_t time() const { return now_; }
  const std::vector<ArchivedFile>& files() const { return files_; }
  const std::vector<std::string>& missing() const { return missing_; }
  const std::vector<std::string>& notes() const { return notes_; }

 private:
  const std::time_t now_ = std::time(nullptr);
  std::vector<ArchivedFile> files_;
  std::vector<std::string> missing_;
  std::vector<std::string> notes_;
};

}  // namespace qov::ctl

#endif
