#include <grp.h>
#include <pwd.h>
#include <qovpub/qov_utility.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace {

[[noreturn]] void endProcess(const char* line) {
  std::cout << line << std::endl;
  std::fflush(stdout);
  // Not std::exit: static objects would be destroyed under the threads of the modules.
  ::_exit(EXIT_FAILURE);
}

}  // namespace

int QOV_Utility::setDaemon() {
  // Fails for a process group leader, which is in a session of its own kind already.
  static_cast<void>(::setsid());

  const struct passwd* daemon = ::getpwnam("daemon");
  if (daemon == nullptr) {
    endProcess("enter exit");
  }
  const uid_t user = daemon->pw_uid;
  const gid_t group = daemon->pw_gid;
  // Groups first: without the privileges of the old user they could not be given up any more.
  // A failure writes the text of the step after it; kept, start scripts look for it.
  if (::setgroups(1, &group) != 0 || ::setgid(group) != 0) {
    endProcess("enter setuid");
  }
  if (::setuid(user) != 0) {
    endProcess("enter setuid");
  }
  return 0;
}
