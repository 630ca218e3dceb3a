// Names to try, one after the other, for a service whose name is taken.
#pragma once

#include <cstddef>
#include <string>

namespace sorvane {

/// Longest name of a service in bytes (RFC 6763, section 4.1.1).
inline constexpr std::size_t kMaximumServiceNameBytes = 63;

/// Returns the name to try: at the first attempt `name` itself, then "name (2)", "name (3)" and so
/// on. A name that would be too long is cut between two characters. `attempt` counts from 1; `name`
/// is UTF-8.
[[nodiscard]] std::string serviceNameOfAttempt(const std::string& name, int attempt);

}  // namespace sorvane
