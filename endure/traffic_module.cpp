// One of the modules of the campaigns "messages" and "soak", whose code is in their programs.
//   QOV_ENDURE_GID  its id
#include <qovpub/qov_export.h>

#include "endure/traffic.h"

extern "C" QOV_EXPORT CQOV_TaskMgr* QOV_CreateModule();
extern "C" QOV_EXPORT CQOV_TaskMgr* QOV_CreateModule() {
  return qov::endure::makeTrafficModule(QOV_ENDURE_GID);
}
