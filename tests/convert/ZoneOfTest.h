// The time zone and the clock, as a test sets them. Both are put back after the test.
#pragma once

#include "platform/TimeSource.h"
#include "support/ProcessState.h"

namespace sorvane::test {

/// Moves this process to another time zone, a value of TZ, and stops its clock at `unixSeconds`.
inline void setZoneAndClock(const char* zone, long long unixSeconds) {
  static double instant;
  moveToTimeZone(zone);
  instant = static_cast<double>(unixSeconds) - kReferenceDateUnixSeconds;
  setTimeSource([] { return instant; });
}

}  // namespace sorvane::test
