#include <gtest/gtest.h>

#include "sorvctl/TerminalText.h"
#include "sorvctl/top/Fitted.h"

namespace sorvctl::top {
namespace {

using Lines = std::vector<std::string>;

TEST(TopFitted, CutsATextToItsColumns) {
  EXPECT_EQ(fitted("", 5), "");
  EXPECT_EQ(fitted("abcde", 5), "abcde");
  EXPECT_EQ(fitted("abcdef", 5), "abcd…");
  EXPECT_EQ(fitted("abc", 1), "…");
  EXPECT_EQ(fitted("abc", 0), "");
}

TEST(TopFitted, CountsWideAndCombiningCharacters) {
  EXPECT_EQ(fitted("日本語", 6), "日本語");
  EXPECT_EQ(fitted("日本語", 5), "日本…");
  EXPECT_EQ(fitted("日本語", 4), "日…") << "half a character is none";
  EXPECT_EQ(fitted("e\u0301e\u0301", 2), "e\u0301e\u0301");
}

TEST(TopFitted, EscapesWhatATerminalWouldObey) {
  EXPECT_EQ(fitted("a\x1b[2Jb\n", 20), "a\\x1b[2Jb\\n");
  EXPECT_EQ(fitted("\xff", 20), "\\xff");
}

TEST(TopFitted, BoundsTheBytesOfTextWithoutWidth) {
  std::string marks = "e";
  for (int index = 0; index < 100000; ++index) {
    marks += "\u0301";
  }
  const std::string text = fitted(marks, 10);
  EXPECT_LT(text.size(), 400U);
  EXPECT_TRUE(text.ends_with("…"));
  EXPECT_LT(fitted(std::string(std::size_t{1} << 20, '\xff'), 10).size(), 20U);
}

TEST(TopWrapped, GoesOnInTheNextLine) {
  EXPECT_EQ(wrapped("", 4, 3), Lines{""});
  EXPECT_EQ(wrapped("abcd", 4, 3), Lines{"abcd"});
  EXPECT_EQ(wrapped("abcdefghij", 4, 3), (Lines{"abcd", "efgh", "ij"}));
  EXPECT_EQ(wrapped("abcdefghijklm", 4, 3), (Lines{"abcd", "efgh", "ijk…"}));
  EXPECT_EQ(wrapped("日本語", 5, 3), (Lines{"日本", "語"}));
  EXPECT_EQ(wrapped("日本", 1, 3), Lines{"…"});
  EXPECT_EQ(wrapped(std::string(100000, 'x'), 4, 2), (Lines{"xxxx", "xxx…"}));
}

}  // namespace
}  // namespace sorvctl::top
