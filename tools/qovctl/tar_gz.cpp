#include "tools/qovctl/tar_gz.h"

#include <archive.h>
#include <archive_entry.h>

#include <cerrno>
#include <memory>
#include <new>

#include "tools/qovctl/failure.h"

namespace qov::ctl {
namespace {

struct Freer {
  void operator()(archive* made) const { archive_write_free(made); }
  void operator()(archive_entry* made) const { archive_entry_free(made); }
};

/// C calls it, so nothing may be thrown.
la_ssize_t append(archive* made, void* to, const void* bytes, std::size_t count) try {
  static_cast<std::string*>(to)->append(static_cast<const char*>(bytes), count);
  return static_cast<la_ssize_t>(count);
} catch (const std::bad_alloc&) {
  archive_set_error(made, ENOMEM, "not enough memory");
  return -1;
}

/// A warning is of a name that this locale cannot have in UTF-8; it goes in as it is.
void check(archive& made, int result) {
  if (result < ARCHIVE_WARN) {
    throw Failure(kFailed, "cannot make the archive: " + std::string(archive_error_string(&made)));
  }
}

void add(archive& made, const std::string& folder, const ArchivedFile& file) {
  const std::unique_ptr<archive_entry, Freer> entry(archive_entry_new());
  if (entry == nullptr) {
    throw std::bad_alloc();
  }
  archive_entry_set_pathname(entry.get(), (folder + "/" + file.name).c_str());
  archive_entry_set_size(entry.get(), static_cast<la_int64_t>(file.content.size()));
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), 0600);
  archive_entry_set_mtime(entry.get(), file.time, 0);
  check(made, archive_write_header(&made, entry.get()));
  if (archive_write_data(&made, file.content.data(), file.content.size()) < 0) {
    check(made, ARCHIVE_FATAL);
  }
}

}  // namespace

std::string tarGz(const std::string& folder, const std::vector<ArchivedFile>& files) {
  std::string bytes;
  const std::unique_ptr<archive, Freer> made(archive_write_new());
  if (made == nullptr) {
    throw std::bad_alloc();
  }
  check(*made, archive_write_add_filter_gzip(made.get()));
  check(*made, archive_write_set_format_pax_restricted(made.get()));
  check(*made, archive_write_set_bytes_in_last_block(made.get(), 1));
  check(*made, archive_write_open(made.get(), &bytes, nullptr, &append, nullptr));
  for (const ArchivedFile& file : files) {
    add(*made, folder, file);
  }
  check(*made, archive_write_close(made.get()));
  return bytes;
}

}  // namespace qov::ctl
