// A MonitorGuard that logs what becomes of it, in the place of the platform's in this program.
#include <ace/Log_Msg.h>
#include <qovplatform/platform_guard.h>

MonitorGuard::MonitorGuard(unsigned seconds) {
  ACE_DEBUG((LM_INFO, "guard of %u seconds is made\n", seconds));
}

MonitorGuard::~MonitorGuard() {
  ACE_DEBUG((LM_INFO, "guard is gone\n"));
}
