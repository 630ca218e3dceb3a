#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <random>

#include "convert/GuardedBuffer.h"
#include "convert/IntegerText.h"

namespace sorvane::test {
namespace {

constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

std::string grouped(std::int64_t value, char separator) {
  GuardedBuffer buffer(28);
  vn_lltoas(value, buffer.data(), separator);
  return buffer.text();
}

std::string plain(std::int64_t value) {
  GuardedBuffer buffer(21);
  vn_lltoa(value, buffer.data());
  return buffer.text();
}

// Values of every number of digits, both signs, and the ends of the type.
std::vector<std::int64_t> valuesToTry() {
  std::vector<std::int64_t> values = {0, kLeast, kLeast + 1, kMost};
  for (std::int64_t power = 1; power <= kMost / 10; power *= 10) {
    for (const std::int64_t value : {power - 1, power, power + 1, power * 9}) {
      values.push_back(value);
      values.push_back(-value);
    }
  }
  std::mt19937_64 random(20010101);
  for (int i = 0; i < 20000; ++i) {
    values.push_back(static_cast<std::int64_t>(random() >> (random() % 64)) *
                     (i % 2 == 0 ? 1 : -1));
  }
  return values;
}

TEST(Llabs, IsTheDistanceFromZeroExceptForTheMostNegativeValue) {
  EXPECT_EQ(vn_llabs(5), 5);
  EXPECT_EQ(vn_llabs(-5), 5);
  EXPECT_EQ(vn_llabs(0), 0);
  EXPECT_EQ(vn_llabs(kLeast + 1), kMost);
  EXPECT_EQ(vn_llabs(kLeast), kLeast);
}

TEST(Lltoas, PutsTheSeparatorBetweenGroupsOfThree) {
  const struct {
    std::int64_t value;
    char separator;
    const char* text;
  } table[] = {{kLeast, '.', "-9.223.372.036.854.775.808"},
               {kLeast, '\0', "-9223372036854775808"},
               {kMost, ',', "9,223,372,036,854,775,807"},
               {0, ',', "0"},
               {0, '\0', "0"},
               {-999, ',', "-999"},
               {1234567, ',', "1,234,567"},
               {-1000, ',', "-1,000"},
               {100, ',', "100"},
               {999999, ' ', "999 999"},
               {1000000, '\'', "1'000'000"},
               {-100000, ',', "-100,000"}};
  for (const auto& row : table) {
    EXPECT_EQ(grouped(row.value, row.separator), row.text);
  }
}

TEST(Lltoa, WritesWhatTheCLibraryWrites) {
  for (const std::int64_t value : valuesToTry()) {
    char expected[32];
    std::snprintf(expected, sizeof(expected), "%lld", static_cast<long long>(value));
    ASSERT_EQ(plain(value), expected);
  }
}

TEST(Lltoas, DiffersFromLltoaByTheSeparatorsAlone) {
  for (const std::int64_t value : valuesToTry()) {
    const std::string digits = plain(value);
    std::string expected;
    for (std::size_t i = 0; i < digits.size(); ++i) {
      const std::size_t left = digits.size() - i;
      if (i > (value < 0 ? 1U : 0U) && left % 3 == 0) {
        expected += ',';
      }
      expected += digits[i];
    }
    ASSERT_EQ(grouped(value, ','), expected);
  }
}

TEST(Atoll, ReadsBackWhatLltoaWrites) {
  for (const std::int64_t value : valuesToTry()) {
    ASSERT_EQ(vn_atoll(plain(value).c_str()), value);
  }
}

TEST(Atoll, TakesEveryCharacterForADigitOrASign) {
  const struct {
    const char* text;
    std::int64_t value;
  } table[] = {{"", 0},
               {"--5", -5},
               {"5-", -5},
               {"-", 0},
               {"1-2", -12},
               {"1,234", 6234},
               {" 7", -153},
               {"007", 7},
               {"+3", -47},
               {"\xff", 207},
               {"18446744073709551617", 1},
               {"-18446744073709551617", -1},
               {"9223372036854775808", kLeast}};
  for (const auto& row : table) {
    EXPECT_EQ(vn_atoll(row.text), row.value) << row.text;
  }
}

TEST(Ahextoll, ReadsLowerCaseHexadecimalAndStopsAtTheFirstOtherCharacter) {
  const struct {
    const char* text;
    std::int64_t value;
  } table[] = {{nullptr, 0},
               {"", 0},
               {"-", 0},
               {"0x", 0},
               {"-0x1a", -26},
               {"12g", 18},
               {"ff", 255},
               {"0xff", 255},
               {"0X1F", 0},
               {"x1", 0},
               {"FF", -289},
               {"A", -22},
               {"F", -17},
               {"1F", -1},
               {"-FF", 289},
               {"--1", 0},
               {"-x1", 0},
               {" 1", 0},
               {"1 2", 1},
               {"1\xe4", 1},
               {"00x1", 0},
               {"0x0x1", 0},
               {"@", 0},
               {"`", 0},
               {"G", 0},
               {"7fffffffffffffff", kMost},
               {"8000000000000000", kLeast},
               {"ffffffffffffffff", -1},
               {"1ffffffffffffffff", -1},
               {"-8000000000000000", kLeast}};
  for (const auto& row : table) {
    EXPECT_EQ(vn_ahextoll(row.text), row.value) << (row.text == nullptr ? "null" : row.text);
  }
}

TEST(Ahextoll, ReadsBackRandomValues) {
  for (const std::int64_t value : valuesToTry()) {
    char text[32];
    std::snprintf(text, sizeof(text), "%s0x%llx", value < 0 ? "-" : "",
                  static_cast<unsigned long long>(vn_llabs(value)));
    ASSERT_EQ(vn_ahextoll(text), value) << text;
  }
}

}  // namespace
}  // namespace sorvane::test
