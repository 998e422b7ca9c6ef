#include <mntent.h>
#include <qovpub/qov_exception.h>
#include <sys/statvfs.h>

#include <cstdio>
#include <memory>

#include "examples/common/messages.h"
#include "examples/inventory/state_records.h"

namespace devagent {
namespace {

void addSizes(CTLVRecordV3& record, const char* mountPoint) {
  struct statvfs sizes = {};
  if (statvfs(mountPoint, &sizes) != 0) {
    return;
  }
  const std::uint64_t block = sizes.f_frsize;
  record.addUnsigned(kSizeKb, block * sizes.f_blocks / 1024);
  record.addUnsigned(kFreeKb, block * sizes.f_bavail / 1024);
}

}  // namespace

void appendFileSystems(CQOV_MsgPackage& answer) {
  const std::unique_ptr<FILE, int (*)(FILE*)> mounts(setmntent("/proc/self/mounts", "re"),
                                                     endmntent);
  if (!mounts) {
    throw CQOV_Exception("cannot read the mounted file systems");
  }
  mntent entry = {};
  char text[8192];
  while (getmntent_r(mounts.get(), &entry, text, sizeof text) != nullptr) {
    CTLVRecordV3& record = answer.addRecord(kFileSystemRecord);
    record.addString(kMountPoint, entry.mnt_dir);
    record.addString(kMountDevice, entry.mnt_fsname);
    record.addString(kMountType, entry.mnt_type);
    addSizes(record, entry.mnt_dir);
  }
}

}  // namespace devagent
