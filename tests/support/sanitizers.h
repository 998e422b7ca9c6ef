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

#endif
