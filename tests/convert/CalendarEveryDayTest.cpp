// Every day of a thousand years against the calendar of the standard library.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "convert/Calendar.h"
#include "convert/ZoneOfTest.h"

namespace sorvane::test {
namespace {

using std::chrono::sys_days;

constexpr sys_days kReference{std::chrono::year{2001} / 1 / 1};
constexpr struct {
  int second;
  const char* text;
} kTimesOfDay[] = {{0, " 00:00:00 "},     {1, " 00:00:01 "},     {3599, " 00:59:59 "},
                   {43200, " 12:00:00 "}, {45296, " 12:34:56 "}, {86399, " 23:59:59 "}};

std::string dateText(int year, unsigned month, unsigned day) {
  char text[32];
  std::snprintf(text, sizeof(text), "%04d-%02u-%02u", year, month, day);
  return text;
}

// The first instant of a year before 2001 is misplaced on purpose: it counts as the day after the
// last of the year before.
bool isMisplaced(std::chrono::year_month_day date, int second) {
  using namespace std::chrono;
  return second == 0 && date.month() == January && date.day() == day{1} && date.year() < year{2001};
}

std::string misplacedDateText(std::chrono::year date) {
  const std::chrono::year before = date - std::chrono::years{1};
  return dateText(static_cast<int>(before), 0, before.is_leap() ? 367 : 366);
}

struct EveryDay : testing::TestWithParam<int> {};

TEST_P(EveryDay, IsFormattedAndReadAsTheStandardCalendarHasIt) {
  initGMTOffset(GetParam());
  const sys_days last{std::chrono::year{2600} / 12 / 31};
  int misplaced = 0;
  for (sys_days day{std::chrono::year{1583} / 1 / 1}; day <= last; day += std::chrono::days{1}) {
    const std::chrono::year_month_day date{day};
    const std::string right =
        dateText(static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                 static_cast<unsigned>(date.day()));
    const double midnight =
        static_cast<double>((day - kReference).count()) * 86400 - gmtoffset * 3600.0;
    for (const auto& time : kTimesOfDay) {
      const bool misplace = isMisplaced(date, time.second);
      const std::string expected =
          (misplace ? misplacedDateText(date.year()) : right) + time.text + gmtstring;
      const double value = midnight + time.second;
      char text[64];
      if (VN_formatDate(text, value) != expected) {
        FAIL() << text << " instead of " << expected;
      }
      if (misplace) {
        ++misplaced;  // month 0 does not read back
      } else if (dateToFloat(text) != value) {
        FAIL() << text << " reads back as another value";
      }
    }
  }
  EXPECT_EQ(misplaced, 2000 - 1583 + 1) << "one instant a year up to 2000";
}

INSTANTIATE_TEST_SUITE_P(Offsets, EveryDay, testing::Values(0, 530, -1100));

}  // namespace
}  // namespace sorvane::test
