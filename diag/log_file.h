#ifndef QOV_DIAG_LOG_FILE_H
#define QOV_DIAG_LOG_FILE_H

#include <sys/stat.h>

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

namespace qov {

/// The log file: appended to record by record, rotated by size, begun anew when someone moved or
/// deleted it or put another descriptor in the place of its own (noticed within a second), or
/// closed its descriptor (noticed at once).
///
/// Thread: not locked; LogSink uses it under its lock.
/// Owns:   its descriptor.
/// Errors: answered by the results, errno says why.
class LogFile {
 public:
  LogFile() = default;
  ~LogFile();
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  /// Goes over to `path`, which is opened or created for appending; the same path counts, too. On
  /// failure false: write() goes on trying, and only a file of that same path stays open.
  bool open(const std::string& path);

  /// Gives a file that did not exist, and has no predecessor to take after, to this user.
  void setOwner(uid_t user, gid_t group);

  /// Appends all of `record`, or nothing and false.
  bool write(std::string_view record);

  /// Begins the file anew when its path no longer leads to it, then rotates it when it has more
  /// than `maxBytes` (0: no limit): path -> path.1 -> path.2 and so on up to `predecessors`. False
  /// when it should be rotated and cannot be (a directory without the right to write): it goes on
  /// growing then, which is better than losing what it or a predecessor holds.
  bool check(long long maxBytes, int predecessors);

  /// In a forked child: opens the file anew before the next record. Until then it shares its
  /// position with the parent's, and either could take a record of the other's for its own.
  void openAnew();

  /// Removes path.`number` and those behind it, up to the first number without a regular file: what
  /// is left when fewer files are kept than before. Rotation leaves no gap; what comes after one is
  /// somebody else's. Without a path it removes nothing.
  void removeFrom(int number) const;

  const std::string& path() const { return path_; }
  /// While path() cannot be opened: the present name of the file that records still go to; empty if
  /// they go to no file.
  std::string otherPlace() const;

 private:
  bool begin(const struct stat* predecessor);
  bool isReady();
  bool follow();
  bool append(std::string_view record);
  bool statOwn(struct stat& own) const;
  bool isMoved(const struct stat& own) const;
  bool putAside(int predecessors) const;
  void takeBack(size_t written) const;
  void forgetLost();
  std::string numbered(int number) const { return path_ + "." + std::to_string(number); }
  void close();

  std::string path_;
  int fd_ = -1;
  dev_t device_ = 0;  ///< with inode_: whose descriptor fd_ was when it was opened
  ino_t inode_ = 0;
  bool isShared_ = false;  ///< with the parent of this process
  bool hasOwner_ = false;
  uid_t user_ = 0;
  gid_t group_ = 0;
  static constexpr time_t kNever = 0;
  time_t lastLook_ = kNever;  ///< second in which fd_ and path_ were last seen to belong together
};

}  // namespace qov

#endif
