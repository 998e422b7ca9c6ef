#ifndef QOV_TESTS_MODULES_MQTT_SLOW_DISK_H
#define QOV_TESTS_MODULES_MQTT_SLOW_DISK_H

namespace qov::test {

/// While it lives, whoever of this program waits for the disk waits on. One at a time.
class SlowDisk {
 public:
  SlowDisk();
  ~SlowDisk();
  SlowDisk(const SlowDisk&) = delete;
  SlowDisk& operator=(const SlowDisk&) = delete;

  /// Until somebody waits.
  static bool isWaitedFor();
};

/// While it lives, nothing of a database can be read from the disk. One at a time.
class UnreadableDisk {
 public:
  UnreadableDisk();
  ~UnreadableDisk();
  UnreadableDisk(const UnreadableDisk&) = delete;
  UnreadableDisk& operator=(const UnreadableDisk&) = delete;

  /// Until so many times somebody has tried.
  static bool isTried(int times);
};

}  // namespace qov::test

#endif
