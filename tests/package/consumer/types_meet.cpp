// Of qovpub's types there is one each in the process, however many libraries hide what they have.
#include <qovpub/qov_exception.h>

#include <functional>
#include <iostream>
#include <memory>

#include "other_side.h"

namespace {

int failures = 0;

void expect(bool holds, const char* what) {
  if (!holds) {
    std::cerr << "not so: " << what << '\n';
    ++failures;
  }
}

bool isCaught(const std::function<void()>& thrower) {
  try {
    thrower();
  } catch (const CQOV_Exception&) {
    return true;
  } catch (...) {
  }
  return false;
}

bool isOm(CQOV_MsgPackage* made) {
  const std::unique_ptr<CQOV_MsgPackage> package(made);
  return dynamic_cast<CQOV_OM_MsgPackage*>(package.get()) != nullptr;
}

}  // namespace

int main() {
  expect(isCaught([] { (void)CQOV_MsgPackage()[0]; }), "qovpub's exception is caught");
  expect(isCaught(throwOnTheOtherSide), "the other library's exception is caught");
  QOVMsgHead head;
  expect(!isOm(CreateQovMsgPackage(head)), "qovpub makes a plain package");
  head.flags_ |= QOVMsgHead::kFlagOm;
  expect(isOm(CreateQovMsgPackage(head)), "qovpub makes an OM package");
  expect(isOm(packageOfTheOtherSide()), "the other library makes an OM package");
  expect(kitsOfTheOtherSide() == CQOVDebugKitMgr::instance(), "there is one registry of kits");
  return failures == 0 ? 0 : 1;
}
