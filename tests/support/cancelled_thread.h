#ifndef QOV_TESTS_SUPPORT_CANCELLED_THREAD_H
#define QOV_TESTS_SUPPORT_CANCELLED_THREAD_H

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>

namespace qov::test {

/// Runs `work` on a thread that has been cancelled and has not noticed yet. It has to notice when
/// `work` has returned, or before.
inline void cancelIn(std::function<void()> work) {
  pthread_t thread{};
  ASSERT_EQ(pthread_create(
                &thread, nullptr,
                [](void* argument) -> void* {
                  pthread_cancel(pthread_self());
                  (*static_cast<std::function<void()>*>(argument))();
                  pthread_testcancel();
                  return nullptr;
                },
                &work),
            0);
  void* result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, PTHREAD_CANCELED);
}

}  // namespace qov::test

#endif
