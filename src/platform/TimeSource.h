// The wall clock of the registry. Tests can replace it.
#pragma once

namespace sorvane {

/// Seconds between 1 January 1970 and the reference date, 1 January 2001, both 00:00:00 GMT.
inline constexpr double kReferenceDateUnixSeconds = 978307200.0;

/// Returns the current time in seconds since the reference date. Any thread.
[[nodiscard]] double timeIntervalSinceReferenceDate();

/// A clock: returns the current time in seconds since the reference date.
using TimeSource = double (*)();

/// Replaces the clock of the whole process; null restores the system's clock. For tests. Any
/// thread.
void setTimeSource(TimeSource source);

}  // namespace sorvane
