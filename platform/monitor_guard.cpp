#include "qovplatform/platform_guard.h"

MonitorGuard::MonitorGuard(unsigned) {}

MonitorGuard::~MonitorGuard() = default;
