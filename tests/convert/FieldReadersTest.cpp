// What is read out of a date or a time as a user types it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

#include "convert/GuardedBuffer.h"
#include "convert/VNConvertTypes.h"

namespace sorvane::test {
namespace {

struct Row {
  const char* text;
  int field;
};

TEST(IsDateNumber, TakesDigitsAndPointsAfterOneMinus) {
  for (const char* text : {"", "-12.5", "12", ".", "-", "1.2.3", "-.", "0"}) {
    EXPECT_TRUE(VNConvertTypes::isDateNumber(text)) << text;
  }
  for (const char* text : {"1-2", "--1", "+1", " 1", "1 ", "1,2", "a", "1/2", "\xb2"}) {
    EXPECT_FALSE(VNConvertTypes::isDateNumber(text)) << text;
  }
}

TEST(GetYear, IsTheNumberAfterTheLastOfTheStrongestSeparator) {
  constexpr Row kTable[] = {{"May 6, 2004", 2004},    {"6 May 2004", 2004}, {"05-06-2004", 2004},
                            {"05/06/2004", 2004},     {"6.5.2004", 2004},   {"a,1,2003", 2003},
                            {"1/2/3-2002", 2002},     {"1.2/2001", 2001},   {"1 2.2000", 2000},
                            {"1/2/2005, 2006", 2006}, {"May", -1},          {"", -1},
                            {"20040506", -1}};
  for (const Row& row : kTable) {
    EXPECT_EQ(VNConvertTypes::getYear(row.text), row.field) << row.text;
  }
}

TEST(GetYear, UpToNinetyNineMeansTheNineteenHundreds) {
  constexpr Row kTable[] = {{"5/6/04", 1904}, {"5/6/99", 1999}, {"5/6/100", 100}, {"May 6", 1906},
                            {"5/6/0", 1900},  {"May 6,", 1900}, {"May, -4", 1896}};
  for (const Row& row : kTable) {
    EXPECT_EQ(VNConvertTypes::getYear(row.text), row.field) << row.text;
  }
}

TEST(GetDay, IsFoundByTheFormOfTheText) {
  constexpr Row kTable[] = {{"May 6, 2004", 6},   {"6 May 2004", 6}, {"05-06-2004", 6},
                            {"05/06/2004", 6},    {"6.5.2004", 6},   {"5/6-7", 6},
                            {"5-6/7", 7},         {"May.6", 0},      {"May, 6", 0},
                            {"May,", 0},          {"May", -1},       {"", -1},
                            {"Feb 32, 2004", 32}, {"5/", 0},         {"5/99999999999", 2147483647}};
  for (const Row& row : kTable) {
    EXPECT_EQ(VNConvertTypes::getDay(row.text), row.field) << row.text;
  }
}

TEST(GetMonth, ReadsNumbersByTheFormOfTheText) {
  constexpr Row kTable[] = {
      {"05-06-2004", 5},  {"05/06/2004", 5}, {"6.5.2004", 5}, {"12/1/2004", 12}, {"13/1/2004", -1},
      {"0/1/2004", -1},   {"6.13.2004", -1}, {"13/5.7", 7},   {"99-6.12", 12},   {"31-May-2004", 5},
      {"31.May.2004", 5}, {"", -1},          {"6", -1}};
  for (const Row& row : kTable) {
    GuardedBuffer buffer(64, row.text);
    EXPECT_EQ(VNConvertTypes::getMonth(buffer.data()), row.field) << row.text;
  }
}

TEST(GetMonth, ReadsEveryNameAndAbbreviationInAnyCase) {
  constexpr const char* kNames[] = {"January",   "February", "March",    "April",
                                    "May",       "June",     "July",     "August",
                                    "September", "October",  "November", "December"};
  for (int month = 1; month <= 12; ++month) {
    const std::string name = kNames[month - 1];
    for (const std::size_t length : {name.size(), std::size_t{3}}) {
      std::string lower = name.substr(0, length);
      std::string upper = lower;
      std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
      std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
      for (const std::string& text : {name.substr(0, length), lower, upper, "6 " + lower + " 4"}) {
        GuardedBuffer buffer(text.size() + 1, text);
        EXPECT_EQ(VNConvertTypes::getMonth(buffer.data()), month) << text;
      }
    }
  }
}

TEST(GetMonth, PutsTheLettersThatItLooksAtIntoUpperCase) {
  constexpr struct {
    const char* text;
    int month;
    const char* after;
  } kTable[] = {{"sept", 9, "Sept"},     {"june", 6, "JUNe"},
                {"july", 7, "JULy"},     {"jan", 1, "JAn"},
                {"jly", 7, "JLy"},       {"jn", 6, "JN"},
                {"ju", 6, "JU"},         {"may", 5, "MaY"},
                {"mAy", 5, "MAY"},       {"my", 5, "MY"},
                {"march", 3, "MaRch"},   {"mr", 3, "MR"},
                {"maay", 3, "MaAy"},     {"aug", 8, "AUg"},
                {"apr", 4, "APr"},       {"dec", 12, "Dec"},
                {"feb", 2, "Feb"},       {"nov", 11, "Nov"},
                {"oct", 10, "Oct"},      {"a", 4, "A"},
                {"j", 1, "J"},           {"m", 3, "M"},
                {"ma", 3, "Ma"},         {"f", 2, "F"},
                {"s", 9, "S"},           {"o", 10, "O"},
                {"n", 11, "N"},          {"d", 12, "D"},
                {"x may", -1, "X may"},  {"6 may", 5, "6 MaY"},
                {"j\xe4n", 1, "J\xe4n"}, {"\xe4 may", 5, "\xe4 MaY"}};
  for (const auto& row : kTable) {
    GuardedBuffer buffer(std::strlen(row.text) + 1, row.text);
    EXPECT_EQ(VNConvertTypes::getMonth(buffer.data()), row.month) << row.text;
    EXPECT_EQ(buffer.text(), row.after);
  }
}

TEST(GetHour, FollowsTheHalfOfTheDay) {
  constexpr Row kTable[] = {{"12:15 am", 0}, {"12:15 pm", 12}, {"7:05 PM", 19},     {"7:05 AM", 7},
                            {"7:05", 7},     {"19:05", 19},    {"24:00", 0},        {"24 PM", 12},
                            {"24 am", 0},    {"25:00", -1},    {"13 pm", 13},       {"11 p", 23},
                            {"a7", 7},       {"A12:30", 0},    {"P7:00", 19},       {"p12", 12},
                            {":30", -1},     {"", -1},         {"pm", -1},          {"x:7", -1},
                            {"at 7 pm", 7},  {"0 pm", 12},     {"99999999999", -1}, {"half 7", 7},
                            {"7 o'clock", 7}};
  for (const Row& row : kTable) {
    EXPECT_EQ(VNConvertTypes::getHour(row.text), row.field) << row.text;
  }
}

TEST(GetMin, IsTheNumberAfterTheFirstColon) {
  constexpr Row kTable[] = {{"7:05", 5}, {"7:59", 59}, {"7:60", -1}, {"7", -1},    {"7:", 0},
                            {":30", 30}, {"7:5:9", 5}, {"7:x", 0},   {"7:-3", -3}, {"", -1}};
  for (const Row& row : kTable) {
    EXPECT_EQ(VNConvertTypes::getMin(row.text), row.field) << row.text;
  }
}

}  // namespace
}  // namespace sorvane::test
