// What the module answers, without an agent around it.
#include <qovpub/qov_testkit.h>

#include <iostream>

#include "skeleton_module.h"
#include "skeleton_worker.h"

namespace skeleton_module {
namespace {

int failures = 0;

void expect(bool isTrue, const char* sentence) {
  if (!isTrue) {
    std::cerr << "not true: " << sentence << '\n';
    ++failures;
  }
}

void greetsByName() {
  QOVTestKit kit(kModule);
  Worker worker(kit.module());
  CQOV_MsgPackage request = kit.message(kGreet);
  request.addRecord(kGreet).addString(kName, "Ada");
  const QOVAnswer answer = kit.ask(worker, request);
  expect(answer && (*answer)[0].getString(kText) == "hello, Ada", "the answer has the name");
}

void refusesWhatHasNoName() {
  QOVTestKit kit(kModule);
  Worker worker(kit.module());
  CQOV_MsgPackage request = kit.message(kGreet);
  expect(kit.ask(worker, request).result() == kNoName, "a request without a record is refused");
  request.addRecord(kGreet).addUnsigned(kName, 5);
  expect(kit.ask(worker, request).result() == kNoName, "a number is refused as a name");
}

void refusesOtherOperations() {
  QOVTestKit kit(kModule);
  Worker worker(kit.module());
  CQOV_MsgPackage request = kit.message(kGreet + 1);
  expect(!kit.ask(worker, request), "an unknown operation is refused");
}

}  // namespace
}  // namespace skeleton_module

int main() {
  skeleton_module::greetsByName();
  skeleton_module::refusesWhatHasNoName();
  skeleton_module::refusesOtherOperations();
  return skeleton_module::failures == 0 ? 0 : 1;
}
