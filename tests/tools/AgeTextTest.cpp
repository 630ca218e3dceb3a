#include <gtest/gtest.h>

#include <limits>

#include "sorvctl/AgeText.h"

namespace sorvctl {
namespace {

using std::chrono::seconds;

TEST(AgeText, IsTheLargestUnitThatHasPassedRoundedDown) {
  const struct {
    long long age;
    const char* text;
  } rows[] = {{0, "0 s"},       {59, "59 s"},    {60, "1 min"},   {119, "1 min"},
              {3599, "59 min"}, {3600, "1 h"},   {7199, "1 h"},   {86399, "23 h"},
              {86400, "1 d"},   {172799, "1 d"}, {432000, "5 d"}, {9999LL * 86400, "9999 d"}};
  for (const auto& row : rows) {
    EXPECT_EQ(ageText(seconds(row.age)), row.text) << row.age;
  }
}

TEST(AgeText, TakesSixColumnsAtMostWhateverTheAge) {
  EXPECT_EQ(ageText(seconds(10000LL * 86400)), "9999 d");
  EXPECT_EQ(ageText(seconds(std::numeric_limits<long long>::max())), "9999 d");
  EXPECT_EQ(ageText(seconds(-1)), "0 s");
  EXPECT_EQ(ageText(seconds(std::numeric_limits<long long>::min())), "0 s");
}

}  // namespace
}  // namespace sorvctl
