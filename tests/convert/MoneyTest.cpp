#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>

#include "convert/GuardedBuffer.h"
#include "convert/IntegerText.h"
#include "convert/SettingsOfTest.h"
#include "convert/VNConvertTypes.h"

namespace sorvane::test {
namespace {

constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

struct Money : testing::Test {
  Money() { VNConvertTypes::useSettingsForTest({}); }
};

using Filter = char* (*)(char*);

std::string changed(Filter filter, std::string_view text, std::size_t room) {
  GuardedBuffer buffer(text.size() + 1 + room, text);
  EXPECT_EQ(filter(buffer.data()), buffer.data());
  return buffer.text();
}

std::string formatted(std::int64_t hundredths) {
  GuardedBuffer buffer(128);
  EXPECT_EQ(VNConvertTypes::LongLongToMoney(hundredths, buffer.data()), buffer.data());
  GuardedBuffer same(128);
  VNConvertTypes::formatMoneyLL(hundredths, same.data());
  EXPECT_EQ(same.text(), buffer.text());
  return buffer.text();
}

std::string formattedLong(long hundredths) {
  GuardedBuffer buffer(128);
  EXPECT_EQ(VNConvertTypes::LongToMoney(hundredths, buffer.data()), buffer.data());
  GuardedBuffer same(128);
  VNConvertTypes::formatMoney(hundredths, same.data());
  EXPECT_EQ(same.text(), buffer.text());
  return buffer.text();
}

// The well-formed text, from quotient and remainder by the C library.
std::string expectedMoney(std::int64_t hundredths) {
  char units[32];
  std::snprintf(units, sizeof(units), "%lld", std::llabs(hundredths / 100));
  std::string text = units;
  for (auto place = static_cast<std::ptrdiff_t>(text.size()) - 3; place > 0; place -= 3) {
    text.insert(static_cast<std::size_t>(place), ",");
  }
  char cents[8];
  std::snprintf(cents, sizeof(cents), ".%02d", static_cast<int>(std::llabs(hundredths % 100)));
  return (hundredths < 0 ? "$-" : "$") + text + cents;
}

std::vector<std::int64_t> amountsToTry() {
  std::vector<std::int64_t> amounts = {kLeast, kLeast + 1, kMost, 0};
  for (std::int64_t amount = -12000; amount <= 12000; ++amount) {
    amounts.push_back(amount);
  }
  std::mt19937_64 random(77);
  for (int i = 0; i < 20000; ++i) {
    amounts.push_back(static_cast<std::int64_t>(random()) >> (random() % 64));
  }
  return amounts;
}

TEST_F(Money, IsWrittenWithGroupsAndTwoDecimals) {
  const struct {
    std::int64_t hundredths;
    const char* text;
  } table[] = {{0, "$0.00"},
               {1, "$0.01"},
               {-5, "$-0.05"},
               {-12, "$-0.12"},
               {99999, "$999.99"},
               {100000, "$1,000.00"},
               {-100000, "$-1,000.00"},
               {-123456, "$-1,234.56"},
               {123456789, "$1,234,567.89"},
               {kMost, "$92,233,720,368,547,758.07"},
               {kLeast, "$-92,233,720,368,547,758.08"}};
  for (const auto& row : table) {
    EXPECT_EQ(formatted(row.hundredths), row.text);
  }
}

TEST_F(Money, IsQuotientAndRemainderForEveryAmount) {
  for (const std::int64_t amount : amountsToTry()) {
    ASSERT_EQ(formatted(amount), expectedMoney(amount));
  }
}

TEST_F(Money, OfTheOlderEntryPointKeepsTheSignAmongFewDigits) {
  const struct {
    long hundredths;
    const char* text;
  } table[] = {{0, "$0.00"},
               {5, "$0.05"},
               {-5, "$0.-5"},
               {-9, "$0.-9"},
               {-10, "$-.10"},
               {-12, "$-.12"},
               {-99, "$-.99"},
               {-100, "$-1.00"},
               {-123, "$-1.23"},
               {-123456, "$-1,234.56"},
               {12345678, "$123,456.78"}};
  for (const auto& row : table) {
    EXPECT_EQ(formattedLong(row.hundredths), row.text);
  }
  for (const std::int64_t amount : amountsToTry()) {
    if (amount >= 0 || amount <= -100) {
      ASSERT_EQ(formattedLong(amount), expectedMoney(amount));
    }
  }
}

TEST(MoneyWithPrefixAndPostfix, PutsThemAroundTheNumber) {
  DisplaySettings settings;
  std::strcpy(settings.pMoneyPre, "EUR ");
  std::strcpy(settings.pMoneyPost, " net");
  VNConvertTypes::useSettingsForTest(settings);
  EXPECT_EQ(formatted(-123456), "EUR -1,234.56 net");
  EXPECT_EQ(formattedLong(-5), "EUR 0.-5 net");
}

TEST(MoneyWithPrefixAndPostfix, OfFullLengthFitsItsBuffer) {
  DisplaySettings settings;
  std::fill_n(settings.pMoneyPre, 31, 'a');
  std::fill_n(settings.pMoneyPost, 47, 'z');
  settings.pMoneyPre[31] = '\0';
  settings.pMoneyPost[47] = '\0';
  VNConvertTypes::useSettingsForTest(settings);
  EXPECT_EQ(formatted(kLeast),
            std::string(31, 'a') + "-92,233,720,368,547,758.08" + std::string(47, 'z'));
}

TEST_F(Money, ReadsBackWhatItWrote) {
  for (const std::int64_t amount : amountsToTry()) {
    GuardedBuffer buffer(128);
    VNConvertTypes::formatMoneyLL(amount, buffer.data());
    ASSERT_EQ(VNConvertTypes::MoneyToLongLong(buffer.data()), amount);
    ASSERT_EQ(VNConvertTypes::MoneyToLong(buffer.data()), amount);
  }
}

TEST_F(Money, IsReadWithDecimalsCutOff) {
  const struct {
    const char* text;
    std::int64_t hundredths;
  } table[] = {{nullptr, 0},         {"", 0},           {"0.005", 0},   {"7", 700}, {"1.", 100},
               {"$1,234.5", 123450}, {"-12.34", -1234}, {"1.239", 123}, {".5", 50}, {"-.5", -50},
               {"$-0.05", -5},       {"5-", -500},      {"1.2.3", 118}, {"x", 0}};
  for (const auto& row : table) {
    EXPECT_EQ(VNConvertTypes::MoneyToLongLong(row.text), row.hundredths)
        << (row.text == nullptr ? "null" : row.text);
  }
}

TEST_F(Money, IsReadAsTheStepsOnTheTextDoIt) {
  std::mt19937_64 random(99);
  for (int i = 0; i < 100000; ++i) {
    std::string text(random() % 8, ' ');
    for (char& character : text) {
      character = "0123456789.-..--, $"[random() % 19];
    }
    GuardedBuffer buffer(text.size() + 3, text);
    VNConvertTypes::movePointToRight(VNConvertTypes::stripNumber(buffer.data()));
    ASSERT_EQ(VNConvertTypes::MoneyToLongLong(text.c_str()), vn_atoll(buffer.data())) << text;
  }
}

TEST_F(Money, ReadAsALongChangesTheTextAndHoldsAtTheEnds) {
  const struct {
    const char* text;
    long hundredths;
    const char* after;
  } table[] = {
      {"$1,234.5", 123450, "123450"},
      {"-12.34", -1234, "-1234"},
      {"7", 700, "700"},
      {"--5", 0, "--500"},
      {"5-", 5, "5-00"},
      {"", 0, "00"},
      {"99999999999999999999", std::numeric_limits<long>::max(), "9999999999999999999900"},
      {"-99999999999999999999", std::numeric_limits<long>::min(), "-9999999999999999999900"}};
  for (const auto& row : table) {
    GuardedBuffer buffer(std::strlen(row.text) + 3, row.text);
    EXPECT_EQ(VNConvertTypes::MoneyToLong(buffer.data()), row.hundredths) << row.text;
    EXPECT_EQ(buffer.text(), row.after);
  }
}

TEST_F(Money, IsReadFromTheFirstFiftyBytesOfATextThatStaysAsItIs) {
  const std::string text = std::string(48, ' ') + "1.99";
  EXPECT_EQ(VNConvertTypes::MoneyToLongLong(text.c_str()), 100);
  EXPECT_EQ(text, std::string(48, ' ') + "1.99");
  EXPECT_EQ(VNConvertTypes::MoneyToLongLong((std::string(49, ' ') + "1.99").c_str()), 100);
  EXPECT_EQ(VNConvertTypes::MoneyToLongLong((std::string(50, ' ') + "1.99").c_str()), 0);
  EXPECT_EQ(VNConvertTypes::MoneyToLongLong(std::string(60, '0').c_str()), 0);
}

TEST(LongLongMoneyToDouble, DividesByAHundred) {
  EXPECT_EQ(VNConvertTypes::LongLongMoneyToDouble(12345), 123.45);
  EXPECT_EQ(VNConvertTypes::LongLongMoneyToDouble(-1), -0.01);
  EXPECT_EQ(VNConvertTypes::LongLongMoneyToDouble(kLeast), -92233720368547758.08);
}

TEST(MovePointToLeft, PutsAPointBeforeTheLastTwoCharacters) {
  const struct {
    const char* text;
    const char* result;
  } table[] = {{"12345", "123.45"}, {"-123", "-1.23"}, {"5", "0.05"},   {"45", "0.45"},
               {"", "0.00"},        {"-5", "0.-5"},    {"-12", "-.12"}, {"123", "1.23"}};
  for (const auto& row : table) {
    EXPECT_EQ(changed(VNConvertTypes::movePointToLeft, row.text, 4), row.result);
  }
}

TEST(MovePointToRight, ScalesToHundredths) {
  const struct {
    const char* text;
    const char* result;
  } table[] = {{"12", "1200"},   {"1.5", "150"},  {"1.234", "123"}, {"1.x", "100"},
               {"1.2x", "120"},  {"1.", "100"},   {"", "00"},       {".", "00"},
               {"-1.5", "-150"}, {"1.23", "123"}, {"1.-5", "1-5"},  {"1.2.3", "12."},
               {"1..", "1.0"},   {"x", "x00"},    {".5", "50"},     {"1.xx5", "100"}};
  for (const auto& row : table) {
    EXPECT_EQ(changed(VNConvertTypes::movePointToRight, row.text, 2), row.result) << row.text;
  }
}

TEST(StripNumber, KeepsOnlyWhatNumbersAreMadeOf) {
  const struct {
    const char* text;
    const char* result;
  } table[] = {{"$1,234.50", "1234.50"},
               {"", ""},
               {"abc", ""},
               {"-1.2-3.", "-1.2-3."},
               {"\xe2\x82\xac 5", "5"},
               {"0123456789", "0123456789"}};
  for (const auto& row : table) {
    EXPECT_EQ(changed(VNConvertTypes::stripNumber, row.text, 0), row.result);
  }
}

TEST(LongTexts, AreCutAfterTwoHundredNinetyNineBytes) {
  const std::string nines(1000, '9');
  const std::string kept(299, '9');
  EXPECT_EQ(changed(VNConvertTypes::stripNumber, nines, 0), kept);
  EXPECT_EQ(changed(VNConvertTypes::movePointToRight, nines, 0), kept + "00");
  EXPECT_EQ(changed(VNConvertTypes::movePointToLeft, nines, 0), std::string(297, '9') + ".99");
  EXPECT_EQ(changed(VNConvertTypes::stripNumber, std::string(298, 'x') + "12", 0), "1");
  GuardedBuffer buffer(1001, nines);
  EXPECT_EQ(VNConvertTypes::MoneyToLong(buffer.data()), std::numeric_limits<long>::max());
  EXPECT_EQ(buffer.text(), kept + "00");
}

}  // namespace
}  // namespace sorvane::test
