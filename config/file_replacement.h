#ifndef QOV_CONFIG_FILE_REPLACEMENT_H
#define QOV_CONFIG_FILE_REPLACEMENT_H

#include <string>

struct stat;

namespace qov {

/// Replaces one file as a whole: the new content goes into a temporary file beside it, which takes
/// the old one's place in one step. A process that dies before that leaves the old file, and the
/// temporary one, whose name is the file's with "." and six characters added.
class FileReplacement {
 public:
  FileReplacement() = default;
  /// Removes the temporary file unless commit() has succeeded.
  ~FileReplacement();

  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;

  /// Creates the temporary file for `fileName`, following symbolic links, with the owner, group and
  /// permissions of the file there; a file that does not exist yet gets 0644 less the file mode
  /// mask. Refuses what is no regular file, or one that this process may not write.
  bool begin(const std::string& fileName);

  /// Whoever writes the content opens this name once more. A child that another thread starts just
  /// then may inherit that descriptor, unless it is opened with O_CLOEXEC.
  const std::string& temporaryName() const { return temporary_; }

  /// Brings what was written under the temporary name to the disk and puts it in place.
  bool commit();

 private:
  bool findTarget(const std::string& fileName);
  bool createTemporary();
  bool createAnew();
  bool takeOver(const struct stat& old);

  std::string target_;
  std::string temporary_;  // empty while there is none
  int handle_ = -1;
};

}  // namespace qov

#endif
