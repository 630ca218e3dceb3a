// The current date and time in the time zone of this host.
#pragma once

namespace sorvane {

/// A moment in local time.
struct LocalTime {
  int year = 0;    ///< in full
  int month = 0;   ///< 1 to 12
  int day = 0;     ///< of the month, from 1
  int hour = 0;    ///< 0 to 23
  int minute = 0;  ///< 0 to 59

  bool daylightSaving = false;
  /// Minutes by which standard time lies west of Greenwich, the same in daylight saving time.
  int minutesWest = 0;
};

/// Returns the current time (see TimeSource.h) in the time zone of the C library. All fields are
/// zero if the time has no calendar date. Any thread.
[[nodiscard]] LocalTime localTimeNow();

}  // namespace sorvane
