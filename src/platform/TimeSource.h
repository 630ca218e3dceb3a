// The wall clock that the registry uses, replaceable by tests.
#pragma once

namespace sorvane {

/// Seconds between 1 January 1970 and the reference date, 1 January 2001, both 00:00:00 GMT.
inline constexpr double kReferenceDateUnixSeconds = 978307200.0;

/// The current time in seconds since the reference date, 1 January 2001 00:00:00 GMT. Any thread.
[[nodiscard]] double timeIntervalSinceReferenceDate();

/// What `timeIntervalSinceReferenceDate` asks; null stands for the system's clock.
using TimeSource = double (*)();

/// Replaces the clock of the whole process; null puts the system's back. For tests. Any thread.
void setTimeSource(TimeSource source);

}  // namespace sorvane
