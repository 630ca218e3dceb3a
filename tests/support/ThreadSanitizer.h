// Whether this program is built with the thread sanitizer.
#pragma once

namespace sorvane::test {

#if defined(__SANITIZE_THREAD__)
inline constexpr bool kHasThreadSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
inline constexpr bool kHasThreadSanitizer = true;
#else
inline constexpr bool kHasThreadSanitizer = false;
#endif
#else
inline constexpr bool kHasThreadSanitizer = false;
#endif

/// Why tests of processes that the C library did not make are left out.
inline constexpr const char* kUnknownToThreadSanitizer =
    "the thread sanitizer knows no process that the C library did not make";

}  // namespace sorvane::test
