// Links what the platform library shows, though its project hides symbols.
#include <qovplatform/platform_guard.h>

int main() {
  MonitorGuard whole(1);
  FowGuard handling(0, 1, 0);
  return PXOS_SysCall(0, nullptr) == -1 ? 0 : 1;
}
