#ifndef QOV_TESTS_SUPPORT_CHILD_H
#define QOV_TESTS_SUPPORT_CHILD_H

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qov::test {

/// Runs `body` in a child of this process, which ends at once with status 0 if that gives true and
/// with 1 if not. How the child ended, as waitpid tells it.
template <class Body>
int endOfChild(Body body) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::_exit(body() ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return status;
}

/// True if `body`, run in a child, gives true there.
template <class Body>
bool holdsInChild(Body body) {
  const int status = endOfChild(body);
  EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace qov::test

#endif
