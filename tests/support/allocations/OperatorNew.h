// Whether a test can replace operator new to make memory run short. It cannot under the thread sanitizer,
// whose own one stays.
#ifndef FLOWLANE_TESTS_OPERATORNEW_H
#define FLOWLANE_TESTS_OPERATORNEW_H

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define FLOWLANE_OPERATOR_NEW_STAYS 1
#endif
#elif defined(__SANITIZE_THREAD__)
#define FLOWLANE_OPERATOR_NEW_STAYS 1
#endif

// At the beginning of a test that replaces it: skips the test when it cannot.
#ifdef FLOWLANE_OPERATOR_NEW_STAYS
#define FLOWLANE_NEEDS_OPERATOR_NEW() GTEST_SKIP() << "the thread sanitizer keeps its own operator new"
#else
#define FLOWLANE_NEEDS_OPERATOR_NEW() static_cast<void>(0)
#endif

#endif
