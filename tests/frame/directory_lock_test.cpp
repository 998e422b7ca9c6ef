#include "frame/app/directory_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>

#include "tests/support/child.h"
#include "tests/support/files.h"

namespace {

TEST(DirectoryLock, EndsWithItsProcessThoughAHelperOfThatLivesOn) {
  const qov::test::TemporaryDirectory directory;
  std::array<int, 2> life{};
  std::array<int, 2> begun{};
  ASSERT_EQ(::pipe2(life.data(), O_CLOEXEC), 0);
  ASSERT_EQ(::pipe2(begun.data(), O_CLOEXEC), 0);
  EXPECT_TRUE(qov::test::holdsInChild([&] {
    const bool isLocked = qov::lockDirectory(directory.path().string()).empty();
    if (::fork() == 0) {
      ::close(life[1]);
      static_cast<void>(!::write(begun[1], "", 1));  // what a fork does in a child is done by now
      char none = 0;
      static_cast<void>(!::read(life[0], &none, 1));  // until the test closes the other end
      ::_exit(0);
    }
    char none = 0;
    static_cast<void>(!::read(begun[0], &none, 1));
    return isLocked;
  }));
  const int next = ::open(directory.path().c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(::flock(next, LOCK_EX | LOCK_NB), 0) << "the helper has it";
  ::close(next);
  for (const int end : {life[0], life[1], begun[0], begun[1]}) {
    ::close(end);
  }
}

}  // namespace
