// Values by their type code.
#include <gtest/gtest.h>

#include <cstdio>
#include <limits>

#include "convert/GuardedBuffer.h"
#include "convert/SettingsOfTest.h"
#include "convert/VNConvertTypes.h"

namespace sorvane::test {
namespace {

struct TypedData : testing::Test {
  TypedData() { VNConvertTypes::useSettingsForTest({}); }

  // The text of a value, which is given at an odd address.
  template <typename Value>
  std::string text(char type, Value value) {
    char bytes[sizeof(Value) + 1];
    std::memcpy(bytes + 1, &value, sizeof(value));
    GuardedBuffer buffer(330);
    EXPECT_TRUE(VNConvertTypes::convertData(bytes + 1, type, buffer.data())) << type;
    return buffer.text();
  }
};

constexpr const char* kNull = "\n";

TEST_F(TypedData, DoublesHaveTenDecimals) {
  using Limits = std::numeric_limits<double>;
  for (const char type : {'!', 'F'}) {
    EXPECT_EQ(text(type, 1.5), "1.5000000000");
    EXPECT_EQ(text(type, 0x1p-149), kNull);
    EXPECT_EQ(text(type, 1.401298464324817e-45), kNull);
    EXPECT_EQ(text(type, -0x1p-149), "-0.0000000000");
    for (const double value :
         {0.0, -0.0, 0.1, -123456.789, 0.00000000005, 0.00000000015, 1e15, Limits::max(),
          Limits::lowest(), Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN(),
          Limits::denorm_min(), 2.5e-10, 1e22, 123456789.987654321}) {
      char expected[400];
      std::snprintf(expected, sizeof(expected), "%.10f", value);
      EXPECT_EQ(text(type, value), expected);
    }
  }
}

TEST_F(TypedData, CharactersAreCopied) {
  for (const char type : {'C', 'D', 'O', 'T'}) {
    GuardedBuffer buffer(6);
    EXPECT_TRUE(VNConvertTypes::convertData("hello", type, buffer.data()));
    EXPECT_EQ(buffer.text(), "hello");
    EXPECT_TRUE(VNConvertTypes::convertData("", type, buffer.data()));
    EXPECT_EQ(buffer.text(), "");
  }
}

TEST_F(TypedData, IntegersHaveNullValuesOfTheirOwn) {
  constexpr auto kLeast32 = std::numeric_limits<std::int32_t>::min();
  constexpr auto kLeast64 = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(text<std::int32_t>('I', 42), "42");
  EXPECT_EQ(text<std::int32_t>('I', kLeast32 + 1), "-2147483647");
  EXPECT_EQ(text<std::int32_t>('I', kLeast32), kNull);
  EXPECT_EQ(text<long>('L', -42), "-42");
  EXPECT_EQ(text<long>('L', 2147483648), kNull) << "the bits of the 32-bit value, read as a long";
  EXPECT_EQ(text<long>('L', -2147483648), "-2147483648");
  EXPECT_EQ(text<long>('L', kLeast64), "-9223372036854775808");
  EXPECT_EQ(text<std::int64_t>('Q', 1234567), "1234567");
  EXPECT_EQ(text<std::int64_t>('Q', kLeast64), kNull);
  EXPECT_EQ(text<std::int64_t>('M', -5), "$-0.05");
  EXPECT_EQ(text<std::int64_t>('M', kLeast64), kNull);
}

TEST_F(TypedData, AnyOtherCodeIsRefusedAndLeavesTheNullText) {
  const std::string known = "!CDFILMOQT";
  for (int code = 0; code < 256; ++code) {
    const char type = static_cast<char>(code);
    if (type != '\0' && known.find(type) != std::string::npos) {
      continue;
    }
    GuardedBuffer buffer(2);
    EXPECT_FALSE(VNConvertTypes::convertData("12345678", type, buffer.data())) << code;
    EXPECT_EQ(buffer.text(), kNull);
  }
}

TEST_F(TypedData, LongLongsAreConvertedBothWays) {
  GuardedBuffer buffer(21);
  VNConvertTypes::convertLongLong(std::numeric_limits<std::int64_t>::min(), buffer.data());
  EXPECT_EQ(buffer.text(), "-9223372036854775808");
  std::int64_t value = 0;
  VNConvertTypes::convertAscii("-1234", &value);
  EXPECT_EQ(value, -1234);
}

}  // namespace
}  // namespace sorvane::test
