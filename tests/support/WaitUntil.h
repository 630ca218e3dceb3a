// How long a test waits, and for what nothing tells of.
#pragma once

#include <chrono>
#include <functional>

namespace sorvane::test {

/// The longest that a test waits for something that should happen; passing it fails the test.
inline constexpr std::chrono::seconds kPatience{30};

/// Asks again and again until `condition` holds; false when it never does within the limit. Only
/// for what no event tells of, such as what a server answers or what /proc shows: it pauses for 2
/// ms after each attempt, so that a busy machine is left to those who are waited for.
[[nodiscard]] bool waitUntil(const std::function<bool()>& condition,
                             std::chrono::milliseconds limit = kPatience);

}  // namespace sorvane::test
