#ifndef OTHER_PLATFORM_GUARD_H
#define OTHER_PLATFORM_GUARD_H

// What a platform guard library of another's making declares: the interface without any extra.
class FowGuard {
 public:
  FowGuard(unsigned kind, unsigned level, unsigned seconds);
  ~FowGuard();
};

class MonitorGuard {
 public:
  explicit MonitorGuard(unsigned seconds);
  ~MonitorGuard();
};

int PXOS_SysCall(unsigned command, void* request);

#endif
