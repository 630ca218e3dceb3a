// Every day of a thousand years against the calendar of the standard library.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>

#include "convert/Calendar.h"
#include "convert/ZoneOfTest.h"

namespace sorvane::test {
namespace {

using std::chrono::sys_days;

constexpr sys_days kReference{std::chrono::year{2001} / 1 / 1};
constexpr int kTimesOfDay[] = {0, 1, 3599, 43200, 45296, 86399};

// The text of a local time, from the standard library's calendar. The first instant of a year
// before 2001 is the one that is misplaced on purpose: it counts as the day after the last of the
// year before.
void expectedText(char (&text)[64], sys_days day, int second, const char* zone) {
  const std::chrono::year_month_day date{day};
  int year = static_cast<int>(date.year());
  auto month = static_cast<unsigned>(date.month());
  auto dayOfMonth = static_cast<unsigned>(date.day());
  if (second == 0 && month == 1 && dayOfMonth == 1 && year < 2001) {
    --year;
    month = 0;
    dayOfMonth = std::chrono::year{year}.is_leap() ? 367 : 366;
  }
  std::snprintf(text, sizeof(text), "%04d-%02u-%02u %02d:%02d:%02d %s", year, month, dayOfMonth,
                second / 3600, second / 60 % 60, second % 60, zone);
}

struct EveryDay : testing::TestWithParam<int> {};

TEST_P(EveryDay, IsFormattedAndReadAsTheStandardCalendarHasIt) {
  const OffsetOfTest offset(GetParam());
  const sys_days last{std::chrono::year{2600} / 12 / 31};
  int misplaced = 0;
  for (sys_days day{std::chrono::year{1583} / 1 / 1}; day <= last; day += std::chrono::days{1}) {
    for (const int second : kTimesOfDay) {
      const double local =
          static_cast<double>((day - kReference).count()) * 86400 + static_cast<double>(second);
      const double value = local - gmtoffset * 3600.0;
      char expected[64];
      char text[64];
      expectedText(expected, day, second, gmtstring);
      VN_formatDate(text, value);
      ASSERT_STREQ(text, expected);
      if (std::strncmp(text + 5, "00", 2) == 0) {
        ++misplaced;
        continue;  // month 0 does not read back
      }
      ASSERT_EQ(dateToFloat(text), value) << text;
    }
  }
  EXPECT_EQ(misplaced, 2000 - 1583 + 1) << "one instant a year up to 2000";
}

INSTANTIATE_TEST_SUITE_P(Offsets, EveryDay, testing::Values(0, 530, -1100));

}  // namespace
}  // namespace sorvane::test
