#include "tests/link/scripted_poll.h"

#include <poll.h>

#include <ctime>
#include <utility>

namespace qov::test {
namespace {

thread_local InsteadOfPoll::Script script;

int real(pollfd* entries, nfds_t count, int timeout) {
  const std::timespec limit{timeout / 1000, timeout % 1000 * 1000000L};
  return ::ppoll(entries, count, timeout < 0 ? nullptr : &limit, nullptr);
}

}  // namespace

InsteadOfPoll::InsteadOfPoll(Script instead) {
  script = std::move(instead);
}

InsteadOfPoll::~InsteadOfPoll() {
  script = nullptr;
}

}  // namespace qov::test

/// In place of the system's, for the libraries, too.
extern "C" int poll(pollfd* entries, nfds_t count, int timeout) {
  using namespace qov::test;
  const auto wait = [=] { return real(entries, count, timeout); };
  return script ? script(wait, timeout) : wait();
}
