#ifndef QOV_TOOLS_QOV_ENDPOINT_LIVE_TABLES_H
#define QOV_TOOLS_QOV_ENDPOINT_LIVE_TABLES_H

#include "tools/qov-endpoint/rows.h"

namespace qov::endpoint {

// What this machine has now. What cannot be read, or goes while it is read, is left out.
Rows readInterfaces();
Rows readMounts();
Rows readProcesses();

}  // namespace qov::endpoint

#endif
