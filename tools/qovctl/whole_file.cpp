#include "tools/qovctl/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "tools/qovctl/failure.h"

namespace qov::ctl {
namespace {

/// As the user wants it for new files.
mode_t newFileMode() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

}  // namespace

void checkPlace(const std::string& path, Place place) {
  struct stat there {};
  if (::lstat(path.c_str(), &there) != 0) {
    return;
  }
  if (place == Place::kFree) {
    throw Failure(kFailed, path + ": is there already");
  }
  if (::stat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode)) {
    throw Failure(kFailed, path + ": is no regular file");
  }
}

WholeFile::WholeFile(std::string path, Place place, Readers readers)
    : path_(std::move(path)), place_(place) {
  checkPlace(path_, place_);
  std::string name = path_ + ".XXXXXX";
  const int descriptor = ::mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0) {
    fail();
  }
  file_.reset(::fdopen(descriptor, "w"));
  const bool isReady =
      file_ != nullptr && (readers == Readers::kOwner || ::fchmod(descriptor, newFileMode()) == 0);
  if (!isReady) {
    const int why = errno;
    ::unlink(name.c_str());
    errno = why;
    fail();
  }
  temporary_ = name;
}

WholeFile::~WholeFile() {
  if (!temporary_.empty()) {
    ::unlink(temporary_.c_str());
  }
}

void WholeFile::write(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), file_.get()) != text.size()) {
    fail();
  }
}

void WholeFile::commit() {
  const bool isOnDisk = std::fflush(file_.get()) == 0 && ::fsync(::fileno(file_.get())) == 0;
  if (!isOnDisk || std::fclose(file_.release()) != 0 || !takePlace()) {
    fail();
  }
  temporary_.clear();
}

bool WholeFile::takePlace() const {
  if (place_ == Place::kFree) {
    const int result =
        ::renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), RENAME_NOREPLACE);
    if (result == 0 || errno != EINVAL) {
      return result == 0;
    }
    // A file system that does not know that; the place was free at the beginning.
  }
  return std::rename(temporary_.c_str(), path_.c_str()) == 0;
}

void WholeFile::fail() const {
  throw Failure(kFailed, path_ + ": cannot be written: " + std::generic_category().message(errno));
}

}  // namespace qov::ctl
