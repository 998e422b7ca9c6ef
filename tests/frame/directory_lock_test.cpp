#include "frame/directory_lock.h"

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
  ASSERT_EQ(::pipe2(life.data(), O_CLOEXEC), 0);
  EXPECT_TRUE(qov::test::holdsInChild([&] {
    const bool isLocked = qov::lockDirectory(directory.path().string()).empty();
    if (::fork() == 0) {
      ::close(life[1]);
      char none = 0;
      static_cast<void>(::read(life[0], &none, 1));  // until the test closes the other end
      ::_exit(0);
    }
    return isLocked;
  }));
  const int next = ::open(directory.path().c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(::flock(next, LOCK_EX | LOCK_NB), 0) << "the helper has it";
  ::close(next);
  ::close(life[0]);
  ::close(life[1]);
}

}  // namespace
