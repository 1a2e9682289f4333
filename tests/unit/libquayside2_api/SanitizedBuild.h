// Whether a sanitizer is built in: counts that only take time are smaller then.
#ifndef FLOWLANE_TESTS_SANITIZEDBUILD_H
#define FLOWLANE_TESTS_SANITIZEDBUILD_H

#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
inline constexpr bool cSanitizedBuild = true;
#else
inline constexpr bool cSanitizedBuild = false;
#endif
#elif defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr bool cSanitizedBuild = true;
#else
inline constexpr bool cSanitizedBuild = false;
#endif

#endif
