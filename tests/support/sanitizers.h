#ifndef QOV_TESTS_SUPPORT_SANITIZERS_H
#define QOV_TESTS_SUPPORT_SANITIZERS_H

// 1 when this program is built with the sanitizer, for the few tests that one does not allow.
#ifdef __SANITIZE_ADDRESS__
#define QOV_TEST_ASAN 1
#else
#define QOV_TEST_ASAN 0
#endif
#ifdef __SANITIZE_THREAD__
#define QOV_TEST_TSAN 1
#else
#define QOV_TEST_TSAN 0
#endif

// For tests that let a library go for good. ACE takes the lock of a library and that of its
// framework repository in one order there, and in the other one when the process ends.
#define QOV_SKIP_IF_ACE_IS_REPORTED()                                       \
  if (QOV_TEST_TSAN) {                                                      \
    GTEST_SKIP() << "reported as a lock order inversion within ACE's code"; \
  }                                                                         \
  static_assert(true)

#endif
