// Calendar arithmetic: a date and a time of day as one number, and back.
#pragma once

#include <cstdint>

namespace sorvane {

// The number, called the date value, counts the seconds since 1 January 2001 00:00:00 GMT; earlier
// dates are negative. Every year follows the Gregorian rule, also before 1582. There are no leap
// seconds. Nothing here fails or allocates, and any argument gives some result: fields out of their
// range are added up as they are, and what lies beyond the years of an `int` is held at their ends.

/// The offset of local time from GMT in whole hours, east positive; 0 until it is initialised. Set
/// once before several threads convert, then only read.
extern std::int32_t gmtoffset;
/// The same offset as text, a sign and HHMM ("+0100"); empty until it is initialised.
extern char gmtstring[32];

/// 1 for a leap year, else 0.
[[nodiscard]] int isLeapYear(int year);

// ---- From fields to seconds

/// Seconds from 1 January to the first of `month`; 0 for a month outside 1 to 12. `leap` is what
/// `isLeapYear` answers; it counts as a number of days. Adds up in 32 bits, wrapping.
[[nodiscard]] double monthToSeconds(int month, int leap);
/// Seconds from the first of the month to that day, which counts from 1.
[[nodiscard]] double daysToSeconds(int day);
[[nodiscard]] double hoursToSeconds(int hours);
[[nodiscard]] double minutesToSeconds(int minutes);
/// The date value of 1 January of that year, 00:00:00 GMT.
[[nodiscard]] double yearToseconds(int year);

// ---- From seconds to fields. Each function takes its field out of `*seconds` and leaves the rest,
// so that a date value is taken apart by calling them in this order.

/// Takes a date value, leaves the seconds since 1 January of the year that it answers. On purpose,
/// 1 January 00:00:00 itself counts as the year before when that is earlier than 2001.
int secondsToYear(double* seconds);
/// Answers 1 to 12 and leaves the seconds since the first of that month; or answers 0 and leaves
/// the value alone when it lies past the end of the year. Any `leap` but 0 means a leap year.
int secondsToMonth(double* seconds, int leap);
/// Answers the day of the month, from 1; leaves the seconds since midnight.
int secondsToDays(double* seconds);
/// Answers the hour; leaves the seconds since its beginning.
int secondsToHours(double* seconds);
/// Answers the minute; leaves the seconds since its beginning.
int secondsToMin(double* seconds);

// ---- The time zone

/// Sets both globals from an offset written as a signed HHMM number (-500 is five hours west); one
/// beyond 2400 either way counts as 0. Half hours stay in the text alone. Answers the length of
/// `gmtstring`.
int initGMTOffset(int offset);
/// The same with the zone that this host keeps now, in whole hours.
int initDateTime();

// ---- Text

/// Reads "YYYY-MM-DD HH:MM:SS +HHMM", or a beginning of it, by the position of its fields. What is
/// missing counts as the first of the month, month 1, noon, minute 0, second 0, `gmtoffset`. Only
/// the whole hours of the zone count.
[[nodiscard]] double dateToFloat(const char* text);

/// Writes "YYYY-MM-DD HH:MM:SS +HHMM" in local time (`gmtoffset`, `gmtstring`) and answers
/// `buffer`. That is 27 bytes at most for a year of four digits and 64 for any value.
char* VN_formatDate(char* buffer, double value);

}  // namespace sorvane
