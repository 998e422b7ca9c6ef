#ifndef QOV_ENDURE_LOG_FAULTS_H
#define QOV_ENDURE_LOG_FAULTS_H

#include <sys/types.h>

#include <cstdint>
#include <filesystem>

#include "endure/campaign.h"

namespace qov::endure {

/// What may happen to an agent's log while the agent runs. What is moved stays below the agent's
/// root, in folders that begin with "log_".
///
/// Thread: the campaign's.
/// Errors: std::system_error.
class LogFaults {
 public:
  LogFaults(Campaign& campaign, std::filesystem::path root)
      : campaign_(campaign), root_(std::move(root)) {}

  /// Of the files of process `agent`, which ignores SIGXFSZ: a write takes what still fits below a
  /// number of bytes, `least` or more, and fails then.
  void fillDisk(pid_t agent, std::int64_t least);
  void freeDisk(pid_t agent);
  bool isDiskFull() const { return isDiskFull_; }

  void takeFolder();
  /// The same folder, or a new one.
  void bringFolder(bool same);
  bool isFolderAway() const { return !away_.empty(); }

  /// Moves the file of that path away, if it is there.
  void moveFile(const std::filesystem::path& file);

 private:
  std::filesystem::path folder() const { return root_ / "log"; }
  static void limitFiles(pid_t agent, std::uint64_t bytes);

  Campaign& campaign_;
  const std::filesystem::path root_;
  bool isDiskFull_ = false;
  std::filesystem::path away_;  ///< where the folder is while it is away
  int moved_ = 0;
};

}  // namespace qov::endure

#endif
