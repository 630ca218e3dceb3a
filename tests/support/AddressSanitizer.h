// Whether these tests are built with the address sanitizer, and the undefined-behaviour sanitizer
// with it.
#pragma once

namespace sorvane::test {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kHasAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kHasAddressSanitizer = true;
#else
inline constexpr bool kHasAddressSanitizer = false;
#endif
#else
inline constexpr bool kHasAddressSanitizer = false;
#endif

/// Why a test that leaves no descriptor free is skipped with it.
inline constexpr const char* kNeedsDescriptors =
    "the undefined-behaviour sanitizer needs a descriptor to look at an object";

}  // namespace sorvane::test
