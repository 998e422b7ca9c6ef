#include <qovplatform/platform_guard.h>

#include <cstdio>

FowGuard::FowGuard(unsigned kind, unsigned, unsigned) {
  std::printf("guard of kind %u\n", kind);
}
FowGuard::~FowGuard() = default;

MonitorGuard::MonitorGuard(unsigned seconds) {
  std::printf("monitor of %u s\n", seconds);
}
MonitorGuard::~MonitorGuard() {
  std::printf("monitor ends\n");
}

int PXOS_SysCall(unsigned command, void*) {
  return static_cast<int>(command) + 1;
}
