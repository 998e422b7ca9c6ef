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

}  // namespace qov::test

#endif
