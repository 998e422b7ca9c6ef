#ifndef QOV_TOOLS_QOVCTL_WHOLE_FILE_H
#define QOV_TOOLS_QOVCTL_WHOLE_FILE_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace qov::ctl {

/// What a file that is written may be put in the place of.
enum class Place : std::uint8_t { kFree, kFreeOrFile };

/// Throws Failure if `path` is no such place.
void checkPlace(const std::string& path, Place place);

/// A file that is there whole or not at all: it is written under another name in the same folder.
///
/// Thread: one.
/// Owns:   what it has written, which goes with it without commit().
/// Errors: Failure with the file's path.
class WholeFile {
 public:
  /// Whom it is for: those whom the user lets read new files, or the user alone.
  enum class Readers : std::uint8_t { kUsual, kOwner };

  explicit WholeFile(std::string path, Place place = Place::kFreeOrFile,
                     Readers readers = Readers::kUsual);
  ~WholeFile();

  WholeFile(const WholeFile&) = delete;
  WholeFile& operator=(const WholeFile&) = delete;

  void write(std::string_view text);
  /// Puts it, once the disk has it, into the place of `path`.
  void commit();

 private:
  struct Closer {
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
  };

  [[noreturn]] void fail() const;
  bool takePlace() const;

  const std::string path_;
  const Place place_;
  std::string temporary_;  ///< empty when there is none any more
  std::unique_ptr<std::FILE, Closer> file_;
};

}  // namespace qov::ctl

#endif
