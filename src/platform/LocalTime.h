// The time now as the clocks on the wall of this host show it, with the zone they keep.
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
  /// Minutes west of Greenwich, those of standard time: the hour of daylight saving is not in them.
  int minutesWest = 0;
};

/// The current time (see TimeSource.h) in the zone of the C library. All zero for a time that has
/// no calendar date. Any thread.
[[nodiscard]] LocalTime localTimeNow();

}  // namespace sorvane
