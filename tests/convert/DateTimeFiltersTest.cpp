// Dates and times between the stored and the display forms.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>

#include "convert/GuardedBuffer.h"
#include "convert/SettingsOfTest.h"
#include "convert/VNConvertTypes.h"
#include "convert/ZoneOfTest.h"

namespace sorvane::test {
namespace {

constexpr long long kNow = 1705322096;  // 15 January 2024 12:34:56 GMT

using Filter = char* (*)(char*);

std::string filtered(Filter filter, std::string_view text) {
  GuardedBuffer buffer(64, text);
  EXPECT_EQ(filter(buffer.data()), buffer.data());
  return buffer.text();
}

struct Row {
  const char* text;
  const char* result;
};

// It is 15 January 2024 12:34 at this test.
struct DateAndTime : testing::Test {
  DateAndTime() {
    setZoneAndClock("UTC0", kNow);
    VNConvertTypes::useSettingsForTest({});
  }
};

using PreFilter = DateAndTime;
using PostFilter = DateAndTime;
using PreTimeFilter = DateAndTime;
using PostTimeFilter = DateAndTime;

TEST_F(PreFilter, ShowsADateInTheStyleOfTheHost) {
  constexpr struct {
    char style;
    const char* may;
    const char* november;
  } kTable[] = {{'0', "May 6, 2004", "Nov 23, 1987"},  {'1', "6 May 2004", "23 Nov 1987"},
                {'2', "05-06-2004", "11-23-1987"},     {'3', "05/06/2004", "11/23/1987"},
                {'4', "6.5.2004", "23.11.1987"},       {'5', "May 6, 2004", "Nov 23, 1987"},
                {'\0', "May 6, 2004", "Nov 23, 1987"}, {'x', "May 6, 2004", "Nov 23, 1987"}};
  for (const auto& row : kTable) {
    VNConvertTypes::useSettingsForTest(dateStyle(row.style));
    EXPECT_EQ(filtered(VNConvertTypes::preFilter, "@2004-05-06"), row.may);
    EXPECT_EQ(filtered(VNConvertTypes::preFilter, "@1987-11-23"), row.november);
  }
}

TEST_F(PreFilter, LooksAtTheFirstCharacterOfTheStyleAlone) {
  DisplaySettings settings;
  std::strcpy(settings.pDate, "42");
  VNConvertTypes::useSettingsForTest(settings);
  EXPECT_EQ(filtered(VNConvertTypes::preFilter, "@2004-05-06"), "6.5.2004");
}

TEST_F(PreFilter, LeavesATextThatIsNoStoredDate) {
  for (const char* text : {"", "2004-05-06", "May 6, 2004", " @2004-05-06", "#12:00"}) {
    EXPECT_EQ(filtered(VNConvertTypes::preFilter, text), text);
  }
}

TEST_F(PreFilter, ReadsFieldsByPositionAndMissingOnesAsZero) {
  constexpr Row kTable[] = {{"@", " 0, 0"},
                            {"@2004", " 0, 2004"},
                            {"@2004-05", "May 0, 2004"},
                            {"@2004-05-", "May 0, 2004"},
                            {"@2004-13-06", " 6, 2004"},
                            {"@2004-00-06", " 6, 2004"},
                            {"@2004-05-06 and more", "May 6, 2004"},
                            {"@0004-05-06", "May 6, 4"},
                            {"@-004-05-06", "May 6, -4"},
                            {"@99999999999999", " 999999, 2147483647"}};
  for (const Row& row : kTable) {
    EXPECT_EQ(filtered(VNConvertTypes::preFilter, row.text), row.result) << row.text;
  }
}

TEST_F(PreFilter, FillsShortYearsWithBlanksInTheNumericStyles) {
  constexpr struct {
    char style;
    const char* text;
  } kTable[] = {{'1', "6 May 4"}, {'2', "05-06-   4"}, {'3', "05/06/   4"}, {'4', "6.5.   4"}};
  for (const auto& row : kTable) {
    VNConvertTypes::useSettingsForTest(dateStyle(row.style));
    EXPECT_EQ(filtered(VNConvertTypes::preFilter, "@0004-05-06"), row.text);
  }
}

TEST_F(PreFilter, StaysWithinSixtyFourBytesForAnyNumbers) {
  for (const char style : {'0', '1', '2', '3', '4'}) {
    VNConvertTypes::useSettingsForTest(dateStyle(style));
    (void)filtered(VNConvertTypes::preFilter, "@-99999999999999999999999999999999999999999999999");
  }
}

TEST_F(PostFilter, StoresEveryDisplayForm) {
  for (const char* text : {"May 6, 2004", "6 May 2004", "05-06-2004", "05/06/2004", "6.5.2004"}) {
    EXPECT_EQ(filtered(VNConvertTypes::postFilter, text), "@2004-05-06") << text;
  }
}

TEST_F(PostFilter, TakesWhatIsMissingFromToday) {
  constexpr Row kTable[] = {{"", ""},
                            {"5/6/04", "@1904-05-06"},
                            {"May 6", "@1906-05-06"},
                            {"May", "@2024-05-01"},
                            {"Feb 30, 2004", "@2004-02-30"},
                            {"Feb 32, 2004", "@2004-02-01"},
                            {"Feb 0, 2004", "@2004-02-01"},
                            {"May, 2004", "@2004-05-01"},
                            {"?", "@2024-01-15"},
                            {"20", "@2024-01-20"},
                            {"15", "@2024-01-15"},
                            {"40", "@2024-01-40"},
                            {"20, 1999", "@1999-01-20"},
                            {"-5", "@1905-01-05"},
                            {"@2004-05-06", "@1906-01-05"}};
  for (const Row& row : kTable) {
    EXPECT_EQ(filtered(VNConvertTypes::postFilter, row.text), row.result) << row.text;
  }
}

TEST(PostFilterInJuly, MakesALoneDayOneOfJanuaryUnlessItIsToday) {
  setZoneAndClock("UTC0", 1721044800);  // 15 July 2024
  VNConvertTypes::useSettingsForTest({});
  EXPECT_EQ(filtered(VNConvertTypes::postFilter, "20"), "@2024-01-20");
  EXPECT_EQ(filtered(VNConvertTypes::postFilter, "15"), "@2024-07-15");
  EXPECT_EQ(filtered(VNConvertTypes::postFilter, "?"), "@2024-07-15");
}

TEST_F(PostFilter, StaysWithinSixtyFourBytesForAnyNumbers) {
  EXPECT_EQ(filtered(VNConvertTypes::postFilter, "99999999999/99999999999/99999999999"),
            "@2147483647-01-2147483647");
}

TEST_F(PreTimeFilter, ShowsTwelveHours) {
  constexpr Row kTable[] = {{"#00:05", "12:05 am"},
                            {"#12:00", "12:00 pm"},
                            {"#23:59", "11:59 pm"},
                            {"#11:59", "11:59 am"},
                            {"#13:00", "1:00 pm"},
                            {"#01:00", "1:00 am"},
                            {"", ""},
                            {"#", "12:00 am"},
                            {"#07", "7:00 am"},
                            {"#24:00", "24:00 am"},
                            {"x19:05", "7:05 pm"}};
  for (const Row& row : kTable) {
    EXPECT_EQ(filtered(VNConvertTypes::preTimeFilter, row.text), row.result) << row.text;
  }
}

TEST_F(PreTimeFilter, ShowsTwentyFourHours) {
  VNConvertTypes::useSettingsForTest(timeStyle('1'));
  constexpr Row kTable[] = {{"#00:05", "00:05"}, {"#12:00", "12:00"}, {"#23:59", "23:59"}, {"", ""},
                            {"#", "00:00"},      {"#7:30", "07:00"}};
  for (const Row& row : kTable) {
    EXPECT_EQ(filtered(VNConvertTypes::preTimeFilter, row.text), row.result) << row.text;
  }
}

TEST_F(PreTimeFilter, AnyOtherStyleMeansTwelveHours) {
  for (const char style : {'0', '2', '\0', 'x'}) {
    VNConvertTypes::useSettingsForTest(timeStyle(style));
    EXPECT_EQ(filtered(VNConvertTypes::preTimeFilter, "#19:05"), "7:05 pm");
  }
}

TEST_F(PostTimeFilter, StoresWhatIsThereAndTakesTheRestFromNow) {
  constexpr Row kTable[] = {{"12:15 am", "#00:15"},
                            {"12:15 pm", "#12:15"},
                            {"7:05 PM", "#19:05"},
                            {":30", "#12:30"},
                            {"7", "#07:00"},
                            {"7 pm", "#19:00"},
                            {"7:99", "#07:00"},
                            {"25:10", "#12:10"},
                            {"25", "#12:34"},
                            {"?", "#12:34"},
                            {"", ""},
                            {"24:00", "#00:00"}};
  for (const Row& row : kTable) {
    EXPECT_EQ(filtered(VNConvertTypes::postTimeFilter, row.text), row.result) << row.text;
  }
}

TEST_F(DateAndTime, ConvertMethodsAreTheFilters) {
  EXPECT_EQ(filtered(VNConvertTypes::convertFromDate, "@2004-05-06"), "May 6, 2004");
  EXPECT_EQ(filtered(VNConvertTypes::convertToDate, "May 6, 2004"), "@2004-05-06");
  EXPECT_EQ(filtered(VNConvertTypes::convertFromTime, "#19:05"), "7:05 pm");
  EXPECT_EQ(filtered(VNConvertTypes::convertToTime, "7:05 pm"), "#19:05");
}

TEST_F(DateAndTime, EveryMinuteOfADayReadsBackInBothStyles) {
  for (const char style : {'0', '1'}) {
    VNConvertTypes::useSettingsForTest(timeStyle(style));
    for (int minute = 0; minute < 24 * 60; ++minute) {
      char stored[16];
      std::snprintf(stored, sizeof(stored), "#%02d:%02d", minute / 60, minute % 60);
      char shown[16];
      if (style == '1') {
        std::snprintf(shown, sizeof(shown), "%02d:%02d", minute / 60, minute % 60);
      } else {
        std::snprintf(shown, sizeof(shown), "%d:%02d %s", (minute / 60 + 11) % 12 + 1, minute % 60,
                      minute < 12 * 60 ? "am" : "pm");
      }
      char text[64];
      std::strcpy(text, stored);
      ASSERT_STREQ(VNConvertTypes::preTimeFilter(text), shown);
      ASSERT_STREQ(VNConvertTypes::postTimeFilter(text), stored);
    }
  }
}

TEST_F(DateAndTime, EveryDayOfFourHundredYearsReadsBackInEveryStyle) {
  using namespace std::chrono;
  for (const char style : {'0', '1', '2', '3', '4'}) {
    VNConvertTypes::useSettingsForTest(dateStyle(style));
    const sys_days end{year{2301} / 1 / 1};
    for (sys_days day{year{1901} / 1 / 1}; day < end; day += days{1}) {
      const year_month_day date{day};
      char stored[16];
      std::snprintf(stored, sizeof(stored), "@%04d-%02u-%02u", static_cast<int>(date.year()),
                    static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
      char text[64];
      std::strcpy(text, stored);
      VNConvertTypes::preFilter(text);
      ASSERT_STRNE(text, stored);
      ASSERT_STREQ(VNConvertTypes::postFilter(text), stored);
    }
  }
}

TEST_F(DateAndTime, CurrentFieldsAreThoseOfTheLocalTime) {
  EXPECT_EQ(VNConvertTypes::currentYear(), 2024);
  EXPECT_EQ(VNConvertTypes::currentMonth(), 1);
  EXPECT_EQ(VNConvertTypes::currentDay(), 15);
  EXPECT_EQ(VNConvertTypes::currentHour(), 12);
  EXPECT_EQ(VNConvertTypes::currentMin(), 34);
  setZoneAndClock("EAST-14", kNow);
  EXPECT_EQ(VNConvertTypes::currentDay(), 16);
  EXPECT_EQ(VNConvertTypes::currentHour(), 2);
}

TEST_F(DateAndTime, CurrentFieldsAreRightBeforeTheUnixEpoch) {
  setZoneAndClock("UTC0", -1);
  EXPECT_EQ(VNConvertTypes::currentYear(), 1969);
  EXPECT_EQ(VNConvertTypes::currentMonth(), 12);
  EXPECT_EQ(VNConvertTypes::currentMin(), 59);
}

}  // namespace
}  // namespace sorvane::test
