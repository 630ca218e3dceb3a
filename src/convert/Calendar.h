// Calendar arithmetic: a date and a time of day as one number, and back.
#pragma once

#include <cstdint>

namespace sorvane {

// The number is called the date value. It counts the seconds since 1 January 2001 00:00:00 GMT;
// earlier dates are negative. Every year follows the Gregorian rule, even before 1582. There are no
// leap seconds. Nothing here fails or allocates memory. Every argument gives some result: fields
// outside their range are added up as they are, and a date beyond the years of an `int` is held at
// the first or last of them.

/// The offset of local time from GMT in whole hours, positive in the east; 0 until it is
/// initialised. It is set before several threads convert, and only read from then on.
extern std::int32_t gmtoffset;
/// The same offset as text: a sign and HHMM ("+0100"). Empty until it is initialised.
extern char gmtstring[32];

/// Returns 1 for a leap year, else 0.
[[nodiscard]] int isLeapYear(int year);

// ---- From fields to seconds

/// Returns the seconds from 1 January to the first of `month`; 0 for a month outside 1 to 12.
/// `leap` is the result of `isLeapYear`; it counts as a number of days. The sum wraps in 32 bits.
[[nodiscard]] double monthToSeconds(int month, int leap);
/// Returns the seconds from the first of the month to that day. Days count from 1.
[[nodiscard]] double daysToSeconds(int day);
[[nodiscard]] double hoursToSeconds(int hours);
[[nodiscard]] double minutesToSeconds(int minutes);
/// Returns the date value of 1 January of that year, 00:00:00 GMT.
[[nodiscard]] double yearToseconds(int year);

// ---- From seconds to fields. Each function returns its field and leaves the rest in `*seconds`.
// Call the functions in this order to take a date value apart.

/// Takes a date value and returns its year. Leaves the seconds since 1 January of that year. On
/// purpose, 1 January 00:00:00 of a year before 2001 counts as the end of the year before it.
int secondsToYear(double* seconds);
/// Returns the month, 1 to 12, and leaves the seconds since the first of that month. When the value
/// lies past the end of the year, returns 0 and leaves the value as it is. Any `leap` other than 0
/// means a leap year.
int secondsToMonth(double* seconds, int leap);
/// Returns the day of the month, from 1. Leaves the seconds since midnight.
int secondsToDays(double* seconds);
/// Returns the hour. Leaves the seconds since the hour began.
int secondsToHours(double* seconds);
/// Returns the minute. Leaves the seconds since the minute began.
int secondsToMin(double* seconds);

// ---- The time zone

/// Sets `gmtoffset` and `gmtstring` from a signed number HHMM: -500 is five hours west. An offset
/// below -2400 or above 2400 counts as 0. Half hours go into `gmtstring` only. Returns the length
/// of `gmtstring`.
int initGMTOffset(int offset);
/// The same with the current offset of this host's time zone, in whole hours.
int initDateTime();

// ---- Text

/// Returns the date value of "YYYY-MM-DD HH:MM:SS +HHMM", or of a beginning of such a text. Each
/// field is read at its position. A missing field counts as month 1, day 1, 12 hours (noon), minute
/// 0, second 0 or the zone `gmtoffset`. Only the whole hours of the zone count.
[[nodiscard]] double dateToFloat(const char* text);

/// Writes "YYYY-MM-DD HH:MM:SS +HHMM" in local time (`gmtoffset`, `gmtstring`) and returns
/// `buffer`. The buffer needs at most 27 bytes for a year of four digits, 64 for any value.
char* VN_formatDate(char* buffer, double value);

}  // namespace sorvane
