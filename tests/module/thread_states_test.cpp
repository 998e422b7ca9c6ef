#include "module/thread_states.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/process_end.h"

namespace {

using ::testing::Contains;
using ::testing::ContainsRegex;

TEST(ThreadStates, NamesTheCallingThread) {
  const std::string self = "thread " + std::to_string(::gettid()) + " (";
  EXPECT_THAT(qov::threadStates(), Contains(::testing::StartsWith(self)));
}

TEST(ThreadStates, SaysInWhichCallAThreadWaits) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  std::thread reader([&] {
    ::pthread_setname_np(::pthread_self(), "test (reader)");
    char byte = 0;
    static_cast<void>(!::read(ends[0], &byte, 1));
  });
  char argument[32];
  std::snprintf(argument, sizeof argument, "read\\(0x%x\\)", static_cast<unsigned>(ends[0]));
  EXPECT_TRUE(qov::test::waitUntil([&] {
    const std::vector<std::string> states = qov::threadStates();
    return ::testing::Value(
        states, Contains(ContainsRegex(std::string("\\(test \\(reader\\)\\): sleeping.*system "
                                                   "call ") +
                                       argument)));
  })) << ::testing::PrintToString(qov::threadStates());
  ::close(ends[1]);
  reader.join();
  ::close(ends[0]);
}

}  // namespace
