#include "other_side.h"

#include <qovpub/qov_exception.h>

#include <memory>

void throwOnTheOtherSide() {
  throw CQOV_Exception("from the other side");
}

CQOV_MsgPackage* packageOfTheOtherSide() {
  return std::make_unique<CQOV_OM_MsgPackage>(nullptr).release();
}

const void* kitsOfTheOtherSide() {
  return ACE_Unmanaged_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>::instance();
}
