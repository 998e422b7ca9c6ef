#include <qovplatform/platform_guard.h>

#include <cstdio>

int main() {
  const MonitorGuard monitor(450);
  { const FowGuard guard(5, 1, 3600); }
  std::printf("gate answers %d\n", PXOS_SysCall(512, nullptr));
}
