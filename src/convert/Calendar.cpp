#include "convert/Calendar.h"

#include <algorithm>
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
constexpr std::int64_t kDaysIn400Years = 146097;
constexpr std::int64_t kDaysIn100Years = 36524;
constexpr std::int64_t kDaysIn4Years = 1461;
constexpr std::int64_t kDaysInYear = 365;

// The last days and seconds whose year is still an `int`, rounded towards the reference date.
constexpr std::int64_t kMostDays = 784'000'000'000;
constexpr double kMostSeconds = 67'000'000'000'000'000.0;

// Days of a common year before the first of each month, and before the one after it.
constexpr int kDaysBefore[13] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

// The integral part. Beyond 2 to the power of 53 every value is its own.
double wholePart(double value) {
  constexpr double kExact = 9007199254740992.0;
  if (value > -kExact && value < kExact) {
    return static_cast<double>(static_cast<std::int64_t>(value));
  }
  return value;
}

int toInt(double whole) {
  constexpr double kLeast = std::numeric_limits<int>::min();
  constexpr double kMost = std::numeric_limits<int>::max();
  if (whole >= kMost) {
    return std::numeric_limits<int>::max();
  }
  return whole > kLeast ? static_cast<int>(whole) : std::numeric_limits<int>::min();
}

// Whole days, held where their year is an `int`; not-a-number counts as 0.
std::int64_t toDays(double seconds) {
  const double days = seconds / kDaySeconds;
  if (days > -static_cast<double>(kMostDays) && days < static_cast<double>(kMostDays)) {
    return static_cast<std::int64_t>(days);
  }
  return days > 0 ? kMostDays : days < 0 ? -kMostDays : 0;
}

// Takes the whole units out of the seconds and answers how many they were.
double takeUnits(double* seconds, int unitSeconds) {
  const double units = wholePart(*seconds / unitSeconds);
  *seconds -= units * unitSeconds;
  return units;
}

// How many whole periods of each length the days hold, the longest first, and the days left.
struct Cycles {
  explicit Cycles(std::int64_t wholeDays) : days(wholeDays) {
    of400 = take(kDaysIn400Years);
    of100 = take(kDaysIn100Years);
    of4 = take(kDaysIn4Years);
    of1 = take(kDaysInYear);
  }

  [[nodiscard]] std::int64_t years() const { return 400 * of400 + 100 * of100 + 4 * of4 + of1; }

  std::int64_t days;
  std::int64_t of400 = 0;
  std::int64_t of100 = 0;
  std::int64_t of4 = 0;
  std::int64_t of1 = 0;

 private:
  std::int64_t take(std::int64_t period) {
    const std::int64_t count = days / period;
    days -= count * period;
    return count;
  }
};

int yearFromReferenceOn(std::int64_t wholeDays) {
  const Cycles cycles(wholeDays);
  auto year = static_cast<int>(kReferenceYear + cycles.years());
  // The last day of a leap year and of 400 years would open a period of its own.
  if (cycles.days == 0 && year != kReferenceYear && isLeapYear(year - 1) != 0) {
    year -= (cycles.of1 == 4 ? 1 : 0) + (cycles.of100 == 4 ? 1 : 0);
  }
  return year;
}

// Kept as it is although 1 January 00:00:00 comes out as the year before: stored dates depend on
// it.
int yearBeforeReference(std::int64_t wholeDays) {
  return static_cast<int>(kReferenceYear + Cycles(wholeDays + 1).years() - 1);
}

}  // namespace

int isLeapYear(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 1 : 0; }

double monthToSeconds(int month, int leap) {
  if (month <= 1 || month > 12) {
    return 0;
  }
  auto days = static_cast<std::uint32_t>(kDaysBefore[month - 1]);
  if (month > 2) {
    days += static_cast<std::uint32_t>(leap);
  }
  return static_cast<std::int32_t>(days * std::uint32_t{kDaySeconds});
}

double daysToSeconds(int day) { return (static_cast<double>(day) - 1) * kDaySeconds; }

double hoursToSeconds(int hours) { return static_cast<double>(hours) * 3600; }

double minutesToSeconds(int minutes) { return static_cast<double>(minutes) * 60; }

double yearToseconds(int year) {
  const std::int64_t years = std::int64_t{year} - kReferenceYear;
  // Up to 2000 the leap years are counted back from 2000, which is one itself.
  const bool after = year >= kReferenceYear;
  const std::int64_t counted = after ? years : years + 1;
  const std::int64_t centuries = counted / 100;
  const std::int64_t blocks = centuries / 4;
  const std::int64_t leapDays =
      24 * (centuries - blocks) + 25 * blocks + (counted - 100 * centuries) / 4 - (after ? 0 : 1);
  return static_cast<double>((kDaysInYear * years + leapDays) * kDaySeconds);
}

int secondsToYear(double* seconds) {
  const std::int64_t days = toDays(*seconds);
  const int year = *seconds < 0 ? yearBeforeReference(days) : yearFromReferenceOn(days);
  *seconds -= yearToseconds(year);
  return year;
}

int secondsToMonth(double* seconds, int leap) {
  const double day = wholePart(*seconds / kDaySeconds);
  if (!(day >= 31)) {
    return 1;
  }
  const double dayOfCommonYear = day - leap;
  for (int month = 2; month <= 12; ++month) {
    if (dayOfCommonYear < kDaysBefore[month]) {
      *seconds -= monthToSeconds(month, leap);
      return month;
    }
  }
  return 0;
}

int secondsToDays(double* seconds) {
  const int days = toInt(takeUnits(seconds, kDaySeconds));
  return std::min(days, std::numeric_limits<int>::max() - 1) + 1;
}

int secondsToHours(double* seconds) { return toInt(takeUnits(seconds, 3600)); }

int secondsToMin(double* seconds) { return toInt(takeUnits(seconds, 60)); }

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
  // Also bounds the text: not-a-number becomes the reference date.
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
