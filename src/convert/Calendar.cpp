#include "convert/Calendar.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "convert/Digits.h"
#include "convert/LeadingInteger.h"
#include "platform/LocalTime.h"

namespace sorvane {

std::int32_t gmtoffset = 0;
char gmtstring[32] = "";

namespace {

constexpr int kReferenceYear = 2001;
constexpr int kDaySeconds = 86400;
constexpr int kHourSeconds = 3600;
constexpr int kMinuteSeconds = 60;
constexpr std::int64_t kDaysIn400Years = 146097;
constexpr std::int64_t kDaysInYear = 365;

// The most days and seconds from the reference date whose year still fits an `int`, rounded down.
constexpr double kMostDays = 784'000'000'000.0;
constexpr double kMostSeconds = 67'000'000'000'000'000.0;

// Closer to 0 than this, a double holds every whole number of seconds exactly.
constexpr double kExactSeconds = 9007199254740992.0;

// The days of the year before each month, and the days of the whole year. The second row is for
// leap years.
constexpr int kDaysBefore[2][13] = {{0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
                                    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366}};

bool isExact(double seconds) { return seconds > -kExactSeconds && seconds < kExactSeconds; }

int toInt(double whole) {
  constexpr double kLeast = std::numeric_limits<int>::min();
  constexpr double kMost = std::numeric_limits<int>::max();
  if (whole >= kMost) {
    return std::numeric_limits<int>::max();
  }
  return whole > kLeast ? static_cast<int>(whole) : std::numeric_limits<int>::min();
}

// Returns how many whole units the seconds hold. Exact seconds are divided as integers, which is
// fastest.
template <int UnitSeconds>
double wholeUnits(double seconds) {
  if (isExact(seconds)) {
    const std::int64_t units = static_cast<std::int64_t>(seconds) / UnitSeconds;
    return static_cast<double>(units);
  }
  return std::trunc(seconds / UnitSeconds);
}

// Takes the whole units out of the seconds and returns how many there were.
template <int UnitSeconds>
int takeUnits(double* seconds) {
  const double units = wholeUnits<UnitSeconds>(*seconds);
  *seconds -= units * UnitSeconds;
  return toInt(units);
}

struct Year {
  int number;
  std::int64_t firstDay;  // from 1 January 2001
};

// Returns the year of a day that is counted from 1 January 2001, where a cycle of 400 years begins.
// Every fourth year of the cycle is a leap year, except the 100th, the 200th and the 300th.
Year yearOfDay(std::int64_t day) {
  std::int64_t cycle = day / kDaysIn400Years;
  auto dayOfCycle = static_cast<std::int32_t>(day % kDaysIn400Years);
  if (dayOfCycle < 0) {
    dayOfCycle += kDaysIn400Years;
    --cycle;
  }
  // The leap days before the day are subtracted. All years then have 365 days.
  const std::int32_t yearOfCycle =
      (dayOfCycle - dayOfCycle / 1460 + dayOfCycle / 36524 - dayOfCycle / 146096) / 365;
  const std::int32_t firstDayOfYear = 365 * yearOfCycle + yearOfCycle / 4 - yearOfCycle / 100;
  return {static_cast<int>(kReferenceYear + 400 * cycle + yearOfCycle),
          cycle * kDaysIn400Years + firstDayOfYear};
}

}  // namespace

int isLeapYear(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 1 : 0; }

double monthToSeconds(int month, int leap) {
  if (month <= 1 || month > 12) {
    return 0;
  }
  auto days = static_cast<std::uint32_t>(kDaysBefore[0][month - 1]);
  if (month > 2) {
    days += static_cast<std::uint32_t>(leap);
  }
  return static_cast<std::int32_t>(days * std::uint32_t{kDaySeconds});
}

double daysToSeconds(int day) { return (static_cast<double>(day) - 1) * kDaySeconds; }

double hoursToSeconds(int hours) { return static_cast<double>(hours) * kHourSeconds; }

double minutesToSeconds(int minutes) { return static_cast<double>(minutes) * kMinuteSeconds; }

double yearToseconds(int year) {
  const std::int64_t years = std::int64_t{year} - kReferenceYear;
  // For a year up to 2000, leap years are counted back from 2000, which is a leap year itself.
  const bool after = year >= kReferenceYear;
  const std::int64_t counted = after ? years : years + 1;
  const std::int64_t centuries = counted / 100;
  const std::int64_t blocks = centuries / 4;
  const std::int64_t leapDays =
      24 * (centuries - blocks) + 25 * blocks + (counted - 100 * centuries) / 4 - (after ? 0 : 1);
  return static_cast<double>((kDaysInYear * years + leapDays) * kDaySeconds);
}

int secondsToYear(double* seconds) {
  const double whole = wholeUnits<kDaySeconds>(*seconds);
  const auto days = static_cast<std::int64_t>(
      whole == whole ? std::clamp(whole, -kMostDays, kMostDays) : 0);  // not-a-number counts as 0
  // For a negative value, rounding towards 0 gives the day after the right one, so one day is
  // subtracted. Exactly at midnight the rounded day was right, so midnight counts as the end of the
  // day before. This is kept on purpose, because stored dates depend on it.
  const Year year = yearOfDay(*seconds < 0 ? days - 1 : days);
  *seconds -= static_cast<double>(year.firstDay * kDaySeconds);
  return year.number;
}

int secondsToMonth(double* seconds, int leap) {
  const double day = wholeUnits<kDaySeconds>(*seconds);
  if (!(day >= 31)) {
    return 1;
  }
  const int(&daysBefore)[13] = kDaysBefore[leap != 0 ? 1 : 0];
  if (day >= daysBefore[12]) {
    return 0;
  }
  // A month has at most 31 days, so the guess is the right month or the one before it.
  const int dayOfYear = static_cast<int>(day);
  const int guess = dayOfYear / 32 + 1;
  const int month = guess + (dayOfYear >= daysBefore[guess] ? 1 : 0);
  *seconds -= static_cast<double>(daysBefore[month - 1] * kDaySeconds);
  return month;
}

int secondsToDays(double* seconds) {
  const int days = takeUnits<kDaySeconds>(seconds);
  return std::min(days, std::numeric_limits<int>::max() - 1) + 1;
}

int secondsToHours(double* seconds) { return takeUnits<kHourSeconds>(seconds); }

int secondsToMin(double* seconds) { return takeUnits<kMinuteSeconds>(seconds); }

int initGMTOffset(int offset) {
  if (offset < -2400 || offset > 2400) {
    offset = 0;
  }
  gmtoffset = offset / 100;
  gmtstring[0] = offset < 0 ? '-' : '+';
  char* const end = writeZeroPadded(gmtstring + 1, offset < 0 ? -offset : offset, 4);
  *end = '\0';
  return static_cast<int>(end - gmtstring);
}

int initDateTime() {
  const LocalTime now = localTimeNow();
  return initGMTOffset(((now.daylightSaving ? 1 : 0) - now.minutesWest / 60) * 100);
}

double dateToFloat(const char* text) {
  const std::size_t length = std::strlen(text);
  const auto field = [&](std::size_t position, int missing) {
    return length > position ? leadingInteger<int>(text + position) : missing;
  };
  const int year = field(0, 0);
  const int month = field(5, 1);
  const int day = field(8, 1);
  const int hour = field(11, 12);  // a date without a time of day means noon
  const int minute = field(14, 0);
  const int second = field(17, 0);
  const int zoneHours = length > 20 ? leadingInteger<int>(text + 20) / 100 : gmtoffset;
  return yearToseconds(year) + monthToSeconds(month, isLeapYear(year)) + daysToSeconds(day) +
         hoursToSeconds(hour) + minutesToSeconds(minute) + second - hoursToSeconds(zoneHours);
}

char* VN_formatDate(char* buffer, double value) {
  double rest = value + hoursToSeconds(gmtoffset);
  // The bounds also limit the length of the text. Not-a-number becomes the reference date.
  rest = rest == rest ? std::clamp(rest, -kMostSeconds, kMostSeconds) : 0;
  const int year = secondsToYear(&rest);
  const int month = secondsToMonth(&rest, isLeapYear(year));
  const int day = secondsToDays(&rest);
  const int hour = secondsToHours(&rest);
  const int minute = secondsToMin(&rest);

  char* out = writeZeroPadded(buffer, year, 4);
  *out++ = '-';
  out = writeZeroPadded(out, month, 2);
  *out++ = '-';
  out = writeZeroPadded(out, day, 2);
  *out++ = ' ';
  out = writeZeroPadded(out, hour, 2);
  *out++ = ':';
  out = writeZeroPadded(out, minute, 2);
  *out++ = ':';
  out = writeZeroPadded(out, toInt(rest), 2);
  *out++ = ' ';
  out = writeText(out, gmtstring);
  *out = '\0';
  return buffer;
}

}  // namespace sorvane
