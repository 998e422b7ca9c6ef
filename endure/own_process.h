#ifndef QOV_ENDURE_OWN_PROCESS_H
#define QOV_ENDURE_OWN_PROCESS_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace qov::endure {

/// Makes `root` what "QOV_ROOT" names for this process: a configuration with `log`, the lines of
/// "LOG_CFG", and a marker for each of `modules`. Before the library is used.
void makeRoot(const std::filesystem::path& root, const std::string& log,
              const std::vector<std::string>& modules);

/// How many threads this process has.
std::size_t ownThreads();

/// What this process holds in memory, in kilobytes, after what it has freed was given back.
struct OwnMemory {
  std::int64_t resident_ = 0;
  std::int64_t heap_ = 0;  ///< allocated and not freed
};
OwnMemory ownMemory();

/// Whether those figures tell something: a sanitizer keeps what was freed.
bool memoryIsMeasured();

/// Numbers that are to stay flat over the last half of a campaign.
class Flatness {
 public:
  void add(std::int64_t value) { values_.push_back(value); }

  /// By how much the highest value of the last quarter is above the highest of the quarter before;
  /// 0 while there are too few to tell.
  std::int64_t growth() const;

 private:
  std::vector<std::int64_t> values_;
};

}  // namespace qov::endure

#endif
