#include <gtest/gtest.h>

#include <algorithm>

#include "platform/Ascii.h"

namespace sorvane {
namespace {

constexpr std::string_view kUpper = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view kLower = "abcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kDigits = "0123456789";

bool isOneOf(char c, std::string_view characters) {
  return characters.find(c) != std::string_view::npos;
}

TEST(Ascii, KnowsItsLettersAndDigitsAmongAllBytes) {
  for (int byte = 0; byte < 256; ++byte) {
    const auto c = static_cast<char>(byte);
    const bool letter = isOneOf(c, kUpper) || isOneOf(c, kLower);
    const bool digit = isOneOf(c, kDigits);
    EXPECT_EQ(isAsciiLetter(c), letter) << byte;
    EXPECT_EQ(isAsciiDigit(c), digit) << byte;
    EXPECT_EQ(isAsciiLetterOrDigit(c), letter || digit) << byte;
  }
}

TEST(Ascii, LowerCaseChangesUpperCaseLettersAlone) {
  for (int byte = 0; byte < 256; ++byte) {
    const auto c = static_cast<char>(byte);
    const std::size_t place = kUpper.find(c);
    EXPECT_EQ(lowerCase(c), place == std::string_view::npos ? c : kLower[place]) << byte;
  }
  EXPECT_EQ(lowerCase(std::string("0A:1b @[`{ \xc3\x84")), "0a:1b @[`{ \xc3\x84");
}

TEST(Ascii, UpperCaseChangesLowerCaseLettersAlone) {
  for (int byte = 0; byte < 256; ++byte) {
    const auto c = static_cast<char>(byte);
    const std::size_t place = kLower.find(c);
    EXPECT_EQ(upperCase(c), place == std::string_view::npos ? c : kUpper[place]) << byte;
  }
}

TEST(Ascii, EqualIgnoringCaseFoldsLettersAlone) {
  EXPECT_TRUE(equalIgnoringCase("aZ09_", "Az09_"));
  EXPECT_TRUE(equalIgnoringCase("", ""));
  EXPECT_FALSE(equalIgnoringCase("a", "ab"));
  EXPECT_FALSE(equalIgnoringCase("ab", "a"));
  EXPECT_FALSE(equalIgnoringCase("ab", "ac"));
  EXPECT_FALSE(equalIgnoringCase("[", "{"));
  EXPECT_FALSE(equalIgnoringCase("@", "`"));
  EXPECT_FALSE(equalIgnoringCase("\xc3\x84", "\xc3\xa4"));
}

TEST(Ascii, HexValueReadsTheDigitsOfBothCasesAlone) {
  constexpr std::string_view kLowerDigits = "0123456789abcdef";
  constexpr std::string_view kUpperDigits = "0123456789ABCDEF";
  for (int byte = 0; byte < 256; ++byte) {
    const auto c = static_cast<char>(byte);
    const std::size_t value = std::min(kLowerDigits.find(c), kUpperDigits.find(c));
    EXPECT_EQ(hexValue(c), value == std::string_view::npos ? -1 : static_cast<int>(value)) << byte;
  }
}

TEST(Ascii, HexDigitsOfAByteAreTwoInLowerCase) {
  std::string text = "x";
  for (const int byte : {0x00, 0x0f, 0xa0, 0x5c, 0xff}) {
    appendHex(text, static_cast<unsigned char>(byte));
  }
  EXPECT_EQ(text, "x000fa05cff");
  for (unsigned value = 0; value < 16; ++value) {
    EXPECT_EQ(hexValue(hexDigit(value)), static_cast<int>(value));
  }
}

}  // namespace
}  // namespace sorvane
