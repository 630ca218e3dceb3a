#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "convert/Calendar.h"
#include "convert/GuardedBuffer.h"
#include "convert/ZoneOfTest.h"

namespace sorvane::test {
namespace {

constexpr double kDay = 86400;

std::string formatted(double value) {
  GuardedBuffer buffer(64);
  EXPECT_EQ(VN_formatDate(buffer.data(), value), buffer.data());
  return buffer.text();
}

TEST(IsLeapYear, FollowsTheGregorianRuleForEveryYear) {
  for (const int year : {2000, 1600, 2004, 1996, 2400, 0, -4, -400, 4}) {
    EXPECT_EQ(isLeapYear(year), 1) << year;
  }
  for (const int year :
       {1900, 2100, 2001, 1999, 2200, 1700, -1, -100, 100, 1, std::numeric_limits<int>::max()}) {
    EXPECT_EQ(isLeapYear(year), 0) << year;
  }
}

TEST(MonthToSeconds, CountsTheDaysBeforeTheMonth) {
  constexpr int kDaysBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
  for (int month = 1; month <= 12; ++month) {
    const int days = kDaysBefore[month - 1];
    EXPECT_EQ(monthToSeconds(month, 0), days * kDay) << month;
    EXPECT_EQ(monthToSeconds(month, 1), (days + (month > 2 ? 1 : 0)) * kDay) << month;
  }
}

TEST(MonthToSeconds, OfNoMonthIsNothing) {
  for (const int month :
       {0, -1, 13, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    EXPECT_EQ(monthToSeconds(month, 1), 0) << month;
  }
}

TEST(MonthToSeconds, WrapsInThirtyTwoBits) {
  // 59 + 30000 days are 2,597,097,600 seconds, which is 1,697,869,696 short of 2 to the power 32.
  EXPECT_EQ(monthToSeconds(3, 30000), -1697869696.0);
}

TEST(DaysHoursAndMinutes, BecomeSecondsAtAnyValue) {
  EXPECT_EQ(daysToSeconds(1), 0);
  EXPECT_EQ(daysToSeconds(40), 39 * kDay);
  EXPECT_EQ(daysToSeconds(0), -kDay);
  EXPECT_EQ(daysToSeconds(std::numeric_limits<int>::min()), -2147483649.0 * kDay);
  EXPECT_EQ(hoursToSeconds(23), 82800);
  EXPECT_EQ(hoursToSeconds(-1), -3600);
  EXPECT_EQ(hoursToSeconds(std::numeric_limits<int>::max()), 2147483647.0 * 3600);
  EXPECT_EQ(minutesToSeconds(59), 3540);
  EXPECT_EQ(minutesToSeconds(std::numeric_limits<int>::max()), 2147483647.0 * 60);
}

TEST(YearToSeconds, CountsTheDaysFromTheReferenceDate) {
  constexpr struct {
    int year;
    int days;
  } kTable[] = {{2001, 0},       {2000, -366},   {1999, -731},  {1900, -36890}, {1601, -146097},
                {1600, -146463}, {2004, 1095},   {2005, 1461},  {2100, 36159},  {2101, 36524},
                {2400, 145731},  {2401, 146097}, {2801, 292194}};
  for (const auto& row : kTable) {
    EXPECT_EQ(yearToseconds(row.year), row.days * kDay) << row.year;
  }
}

TEST(YearToSeconds, HoldsAtTheEndsOfItsType) {
  EXPECT_NEAR(yearToseconds(std::numeric_limits<int>::max()), 6.7767e16, 1e12);
  EXPECT_NEAR(yearToseconds(std::numeric_limits<int>::min()), -6.7768e16, 1e12);
}

TEST(SecondsToYear, LeavesTheSecondsOfTheYear) {
  double seconds = 1095 * kDay + 5;
  EXPECT_EQ(secondsToYear(&seconds), 2004);
  EXPECT_EQ(seconds, 5);
}

TEST(SecondsToYear, KeepsTheLastDayOfALeapYearAndOfACycle) {
  for (const int year : {2000, 2004, 2096, 2400, 2800, 1996, 1600}) {
    double seconds = yearToseconds(year + 1) - 1;
    EXPECT_EQ(secondsToYear(&seconds), year);
    EXPECT_EQ(seconds, 366 * kDay - 1) << year;
  }
}

TEST(SecondsToYear, MisplacesTheFirstInstantOfAYearBeforeTheReference) {
  for (const int year : {2000, 1999, 1901, 1601, 1600, 1, 0, -399}) {
    double seconds = yearToseconds(year);
    EXPECT_EQ(secondsToYear(&seconds), year - 1);
    EXPECT_EQ(seconds, (365 + isLeapYear(year - 1)) * kDay) << year;
  }
  double reference = 0;
  EXPECT_EQ(secondsToYear(&reference), 2001);
}

TEST(SecondsToMonth, FindsEachMonthByItsFirstAndLastSecond) {
  for (const int leap : {0, 1}) {
    for (int month = 1; month <= 12; ++month) {
      double first = monthToSeconds(month, leap);
      EXPECT_EQ(secondsToMonth(&first, leap), month);
      EXPECT_EQ(first, 0);
      const double next = month < 12 ? monthToSeconds(month + 1, leap) : (365 + leap) * kDay;
      double last = next - 1;
      EXPECT_EQ(secondsToMonth(&last, leap), month) << "leap " << leap;
    }
  }
}

TEST(SecondsToMonth, PastTheYearsEndIsMonthZeroAndLeavesTheValue) {
  for (const int leap : {0, 1}) {
    double seconds = (365 + leap) * kDay;
    EXPECT_EQ(secondsToMonth(&seconds, leap), 0);
    EXPECT_EQ(seconds, (365 + leap) * kDay);
  }
}

TEST(SecondsToDaysHoursAndMinutes, TakeTheirUnitAndLeaveTheRest) {
  double seconds = 30 * kDay + 23 * 3600 + 59 * 60 + 58.5;
  EXPECT_EQ(secondsToDays(&seconds), 31);
  EXPECT_EQ(secondsToHours(&seconds), 23);
  EXPECT_EQ(secondsToMin(&seconds), 59);
  EXPECT_EQ(seconds, 58.5);
}

TEST(InitGMTOffset, KeepsWholeHoursAndTheTextOfAll) {
  constexpr struct {
    int offset;
    int hours;
    const char* text;
  } kTable[] = {{530, 5, "+0530"},
                {-100, -1, "-0100"},
                {-1200, -12, "-1200"},
                {2500, 0, "+0000"},
                {-2500, 0, "+0000"},
                {0, 0, "+0000"},
                {100, 1, "+0100"},
                {-500, -5, "-0500"},
                {999, 9, "+0999"},
                {1000, 10, "+1000"},
                {-999, -9, "-0999"},
                {-1000, -10, "-1000"},
                {2400, 24, "+2400"},
                {-2400, -24, "-2400"},
                {2401, 0, "+0000"},
                {-2401, 0, "+0000"},
                {5, 0, "+0005"},
                {-30, 0, "-0030"},
                {std::numeric_limits<int>::min(), 0, "+0000"}};
  initGMTOffset(0);
  for (const auto& row : kTable) {
    EXPECT_EQ(initGMTOffset(row.offset), 5) << row.offset;
    EXPECT_EQ(gmtoffset, row.hours) << row.offset;
    EXPECT_STREQ(gmtstring, row.text);
  }
}

TEST(InitDateTime, TakesWholeHoursAndDaylightSavingFromTheZoneOfTheHost) {
  constexpr long long kWinter = 1705320000;  // 15 January 2024 12:00 GMT
  constexpr long long kSummer = 1721044800;  // 15 July 2024 12:00 GMT
  const struct {
    const char* zone;
    long long now;
    const char* text;
  } table[] = {{"UTC0", kWinter, "+0000"},
               {"IST-5:30", kWinter, "+0500"},
               {"NPT-5:45", kWinter, "+0500"},
               {"CET-1CEST,M3.5.0,M10.5.0/3", kWinter, "+0100"},
               {"CET-1CEST,M3.5.0,M10.5.0/3", kSummer, "+0200"},
               {"EST5EDT,M3.2.0,M11.1.0", kWinter, "-0500"},
               {"EST5EDT,M3.2.0,M11.1.0", kSummer, "-0400"},
               {"NST3:30NDT,M3.2.0,M11.1.0", kWinter, "-0300"},
               {"NST3:30NDT,M3.2.0,M11.1.0", kSummer, "-0200"}};
  initGMTOffset(0);
  for (const auto& row : table) {
    setZoneAndClock(row.zone, row.now);
    EXPECT_EQ(initDateTime(), 5);
    EXPECT_STREQ(gmtstring, row.text) << row.zone;
  }
}

TEST(DateToFloat, ReadsEachPrefixOfTheText) {
  initGMTOffset(200);
  const struct {
    const char* text;
    double value;
  } table[] = {{"2001-01-01 00:00:00 +0000", 0},
               {"2001-01-01", 43200 - 7200},
               {"2001-01-01 ", 43200 - 7200},
               {"2001", 43200 - 7200},
               {"2001-", 43200 - 7200},
               {"2001-02", 31 * kDay + 43200 - 7200},
               {"2001-02-", 31 * kDay + 43200 - 7200},
               {"2001-02-03", 33 * kDay + 43200 - 7200},
               {"2001-01-01 00", -7200},
               {"2001-01-01 01:02", 3720 - 7200},
               {"2001-01-01 01:02:03", 3723 - 7200},
               {"2001-01-01 01:02:03 ", 3723 - 7200},
               {"2001-01-01 01:02:03 -", 3723},
               {"2001-01-01 01:02:03 -0130", 3723 + 3600},
               {"2001-01-01 00:00:00 +0530", -18000},
               {"2001-01-01 00:00:00 -0530", 18000}};
  for (const auto& row : table) {
    EXPECT_EQ(dateToFloat(row.text), row.value) << row.text;
  }
}

TEST(DateToFloat, AddsFieldsUpAsTheyAre) {
  EXPECT_EQ(dateToFloat("2001-13-01 00:00:00 +0000"), 0) << "a month of 13 adds nothing";
  EXPECT_EQ(dateToFloat("2001-01-40 00:00:00 +0000"), 39 * kDay) << "into the next month";
  EXPECT_EQ(dateToFloat("2001-01-01 25:61:99 +0000"), 25 * 3600 + 61 * 60 + 99);
  EXPECT_EQ(dateToFloat("2001--1-01 00:00:00 +0000"), 0);
  EXPECT_EQ(dateToFloat("2001- 2- 1 00:00:00 +0000"), 31 * kDay) << "white space may lead";
  EXPECT_EQ(dateToFloat("abcd-ef-gh ij:kl:mn opqrs"), yearToseconds(0) - kDay);
}

TEST(DateToFloat, OfTheEmptyTextIsNoonOfTheYearZero) {
  initGMTOffset(0);
  EXPECT_EQ(dateToFloat(""), yearToseconds(0) + 43200);
}

TEST(DateToFloat, HoldsNumbersAtTheEndsOfTheirType) {
  EXPECT_EQ(dateToFloat("99999999999999999999999 +0000"),
            // Each field begins inside the same long number.
            yearToseconds(2147483647) + daysToSeconds(2147483647) + hoursToSeconds(2147483647) +
                minutesToSeconds(999999999) + 999999 - hoursToSeconds(9));
}

TEST(FormatDate, WritesTheReferenceDateAndAKnownLeapDay) {
  initGMTOffset(0);
  EXPECT_EQ(formatted(0), "2001-01-01 00:00:00 +0000");
  EXPECT_EQ(formatted(-0.0), "2001-01-01 00:00:00 +0000");
  EXPECT_EQ(formatted(dateToFloat("2000-02-29 12:00:00 +0000")), "2000-02-29 12:00:00 +0000");
  EXPECT_EQ(formatted(-1), "2000-12-31 23:59:59 +0000");
  EXPECT_EQ(formatted(-0.5), "2000-12-31 23:59:59 +0000");
  EXPECT_EQ(formatted(yearToseconds(-4) + 1), "-004-01-01 00:00:01 +0000");
  EXPECT_EQ(formatted(yearToseconds(10000)), "10000-01-01 00:00:00 +0000");
}

TEST(FormatDate, WritesTheMisplacedInstantInTwentySevenBytes) {
  initGMTOffset(0);
  GuardedBuffer buffer(27);
  EXPECT_STREQ(VN_formatDate(buffer.data(), -31622400), "1999-00-366 00:00:00 +0000");
  EXPECT_EQ(formatted(-31622399), "2000-01-01 00:00:01 +0000");
  EXPECT_EQ(formatted(-31622399.5), "2000-01-01 00:00:00 +0000") << "a fraction later it is right";
  EXPECT_EQ(formatted(yearToseconds(1997)), "1996-00-367 00:00:00 +0000");
}

TEST(FormatDate, WritesLocalTimeAndItsOffset) {
  initGMTOffset(-530);
  EXPECT_EQ(formatted(0), "2000-12-31 19:00:00 -0530") << "the half hour stays in the text alone";
}

TEST(FormatDate, EndsWithABlankBeforeTheZoneIsKnown) {
  initGMTOffset(0);
  gmtstring[0] = '\0';
  EXPECT_EQ(formatted(0), "2001-01-01 00:00:00 ");
}

TEST(FormatDate, GivesSomeTextForAnyDouble) {
  initGMTOffset(0);
  using Limits = std::numeric_limits<double>;
  for (const double value : {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(),
                             Limits::max(), Limits::lowest(), Limits::denorm_min(), 6.7e16, -6.7e16,
                             6.8e16, -6.8e16, 9007199254740993.0, 1e18}) {
    EXPECT_EQ(formatted(value).substr(formatted(value).size() - 6), " +0000") << value;
  }
}

TEST(Decomposition, GivesSomeValueForAnyDouble) {
  using Limits = std::numeric_limits<double>;
  for (const double value : {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(),
                             Limits::max(), Limits::lowest(), 1e300, -1e300}) {
    double seconds = value;
    const int year = secondsToYear(&seconds);
    EXPECT_TRUE(value == value ? (year > 2000000000 || year < -2000000000) : year == 2001);
    const int month = secondsToMonth(&seconds, 0);
    EXPECT_TRUE(month == 0 || month == 1);
    (void)secondsToDays(&seconds);
    (void)secondsToHours(&seconds);
    (void)secondsToMin(&seconds);
  }
}

}  // namespace
}  // namespace sorvane::test
