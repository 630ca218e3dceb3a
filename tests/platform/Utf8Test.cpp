#include <gtest/gtest.h>

#include "platform/Utf8.h"

namespace sorvane {
namespace {

TEST(IsUtf8, TakesEveryCodePointAndNothingElse) {
  for (char32_t codePoint = 0; codePoint <= 0x10ffff; ++codePoint) {
    if (codePoint >= 0xd800 && codePoint <= 0xdfff) {
      continue;
    }
    std::string text;
    appendUtf8(text, codePoint);
    ASSERT_TRUE(isUtf8(text)) << static_cast<unsigned>(codePoint);
    ASSERT_EQ(utf8CharacterLength(text), text.size());
    ASSERT_EQ(utf8CodePoint(text), codePoint);
    ASSERT_FALSE(text.size() > 1 && isUtf8(std::string_view(text).substr(0, text.size() - 1)));
  }
}

TEST(IsUtf8, RefusesMalformedSequences) {
  const char* const malformed[] = {
      "\x80",              // a continuation alone
      "\xbf",              // the last one
      "\xc0\x80",          // overlong NUL
      "\xc1\xbf",          // overlong, two bytes
      "\xc3",              // cut off
      "\xc3(",             // no continuation
      "\xe0\x9f\xbf",      // overlong, three bytes
      "\xe2\x82",          // cut off
      "\xe2\x82(",         // no continuation
      "\xed\xa0\x80",      // a surrogate
      "\xed\xbf\xbf",      // the last surrogate
      "\xf0\x8f\xbf\xbf",  // overlong, four bytes
      "\xf0\x9f\x98",      // cut off
      "\xf4\x90\x80\x80",  // beyond U+10FFFF
      "\xf5\x80\x80\x80",  // a lead byte that leads nowhere
      "\xff",              //
  };
  for (const std::string bytes : malformed) {
    EXPECT_FALSE(isUtf8(bytes));
    // In every position relative to the words that are looked at together.
    for (std::size_t before = 0; before < 20; ++before) {
      for (std::size_t after = 0; after < 20; ++after) {
        const std::string text = std::string(before, 'a') + bytes + std::string(after, 'b');
        EXPECT_FALSE(isUtf8(text)) << before << " " << after;
        EXPECT_EQ(wellFormedUtf8Length(text), before);
      }
    }
  }
}

TEST(IsUtf8, TakesTextsOfEveryLengthAndMixture) {
  std::string text;
  for (int i = 0; i < 40; ++i) {
    EXPECT_TRUE(isUtf8(text));
    EXPECT_TRUE(isUtf8(text + "\u00e4\u20ac\U0001f600" + text));
    text += 'x';
  }
}

TEST(IsUtf8, ReadsNothingBeyondTheEnd) {
  const std::string whole = "abcdefg\u20ac";
  EXPECT_FALSE(isUtf8(std::string_view(whole).substr(0, 8)));
  EXPECT_TRUE(isUtf8(std::string_view(whole).substr(0, 7)));
  EXPECT_TRUE(isUtf8(""));
}

TEST(AsciiWithoutNul, IsToldWhereverTheOtherByteStands) {
  constexpr std::size_t kLongest = 40;  // several words and each rest
  for (std::size_t length = 0; length <= kLongest; ++length) {
    std::string text(length, 'a');
    EXPECT_TRUE(isAsciiWithoutNul(text)) << length;
    for (char& byte : text) {
      for (int value = 0; value < 256; ++value) {
        byte = static_cast<char>(value);
        ASSERT_EQ(isAsciiWithoutNul(text), value > 0 && value < 0x80)
            << value << " at " << &byte - text.data() << " of " << length;
      }
      byte = '\x01';  // next to it, a borrow would show
    }
  }
}

TEST(Utf8Beginning, SplitsNoCharacter) {
  const std::string text = "a\u00e4\u20ac\U0001f600";  // 1, 2, 3 and 4 bytes
  const std::size_t ends[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 10};
  for (std::size_t most = 0; most < std::size(ends); ++most) {
    EXPECT_EQ(utf8Beginning(text, most), text.substr(0, ends[most])) << most;
  }
}

TEST(Utf8Beginning, OfBytesThatAreNoUtf8LacksNoneOfThem) {
  EXPECT_EQ(utf8Beginning("\x80\x80\x80\x80\x80", 4), "\x80\x80\x80\x80");
  EXPECT_EQ(utf8Beginning("\xff"
                          "abc",
                          2),
            "\xff"
            "a");
  EXPECT_EQ(utf8Beginning("\xe2\x82", 1), "\xe2");
}

TEST(EscapeControls, ShowsControlsAndMalformedBytesAndLeavesTheRest) {
  using namespace std::string_view_literals;
  EXPECT_EQ(escapeControls(""), "");
  EXPECT_EQ(escapeControls("02:00:5e:10:00:07 \\ \"quoted\""), "02:00:5e:10:00:07 \\ \"quoted\"");
  EXPECT_EQ(escapeControls("\0\x01\n\r\t\x1b[2J\x1f \x7f"sv),
            "\\x00\\x01\\x0a\\x0d\\x09\\x1b[2J\\x1f \\x7f");
  EXPECT_EQ(escapeControls("\u0080\u009b\u009f\u00a0\u00e4\u20ac\U0001f600"),
            "\\x80\\x9b\\x9f\u00a0\u00e4\u20ac\U0001f600");
  EXPECT_EQ(escapeControls("\x9b\xc3"), "\\x9b\\xc3");
}

}  // namespace
}  // namespace sorvane
