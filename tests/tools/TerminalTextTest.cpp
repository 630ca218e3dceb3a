#include <gtest/gtest.h>

#include "sorvctl/TerminalText.h"

namespace sorvctl {
namespace {

using Rows = std::vector<std::vector<Cell>>;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = text.find('\n', begin);
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

TEST(Escaped, ShowsWhatCouldMislead) {
  EXPECT_EQ(escaped("plain äöü 数"), "plain äöü 数");
  EXPECT_EQ(escaped("a\\b\n\r\t"), "a\\\\b\\n\\r\\t");
  EXPECT_EQ(escaped(std::string_view("\0\x1b[31m\x7f", 7)), "\\x00\\x1b[31m\\x7f");
  EXPECT_EQ(escaped("\xFF\xC3"), "\\xff\\xc3");
  EXPECT_EQ(escaped("\u0085\u202e\ufeff"), "\\u0085\\u202e\\ufeff");
}

TEST(EscapedJson, LeavesTheValuesAsTheyAreAndShowsWhatCouldMislead) {
  EXPECT_EQ(escapedJson("{\"a\":\"\\u001b\\n äöü 数\"}"), "{\"a\":\"\\u001b\\n äöü 数\"}");
  EXPECT_EQ(escapedJson("\"\x7f\u009b2J\u202e\ufeff\""), "\"\\u007f\\u009b2J\\u202e\\ufeff\"");
}

TEST(DisplayWidth, IsThatOfTheTerminal) {
  EXPECT_EQ(displayWidth(""), 0U);
  EXPECT_EQ(displayWidth("abc"), 3U);
  EXPECT_EQ(displayWidth("äöü"), 3U);
  EXPECT_EQ(displayWidth("数据库"), 6U);
  EXPECT_EQ(displayWidth("e\u0301"), 1U) << "a combining accent";
  EXPECT_EQ(displayWidth("ที่"), 1U) << "vowel and tone above a Thai letter";
  EXPECT_EQ(displayWidth("🚀"), 2U);
  EXPECT_EQ(displayWidth("…"), 1U);
}

TEST(Shortened, IsTheBeginningWithAMarkIfThatIsNotAll) {
  EXPECT_EQ(shortened("abc", 3), "abc");
  EXPECT_EQ(shortened("abcd", 3), "abc…");
  EXPECT_EQ(shortened("aé", 2), "a…") << "no half of a character";
  EXPECT_EQ(shortened("", 0), "");
}

TEST(BeginningOfWidth, SplitsNoCharacterAndKeepsWhatCombines) {
  EXPECT_EQ(beginningOfWidth("abc", 2), "ab");
  EXPECT_EQ(beginningOfWidth("abc", 4), "abc");
  EXPECT_EQ(beginningOfWidth("数据", 3), "数");
  EXPECT_EQ(beginningOfWidth("e\u0301e\u0301", 1), "e\u0301");
  EXPECT_EQ(beginningOfWidth("abc", 0), "");
}

TEST(CutToWidth, LeavesWhatFits) {
  EXPECT_EQ(cutToWidth("abc", 3), "abc");
  EXPECT_EQ(cutToWidth("数据", 4), "数据");
  EXPECT_EQ(cutToWidth("", 0), "");
}

TEST(CutToWidth, EndsWithADotsSignAndSplitsNoCharacter) {
  EXPECT_EQ(cutToWidth("abcd", 3), "ab…");
  EXPECT_EQ(cutToWidth("数据库", 5), "数据…");
  EXPECT_EQ(cutToWidth("数据库", 4), "数…") << "half a wide character does not fit";
  EXPECT_EQ(cutToWidth("ae\u0301bc", 3), "ae\u0301…");
  EXPECT_EQ(cutToWidth("abc", 1), "…");
  EXPECT_EQ(cutToWidth("abc", 0), "");
}

TEST(Aligned, PutsWideNamesInColumns) {
  EXPECT_EQ(aligned(Rows{{{"数据"}, {"1"}}, {{"abc"}, {"2"}}, {{"e\u0301"}, {"3"}}}),
            "数据  1\nabc   2\ne\u0301     3\n");
}

TEST(Aligned, LeavesNoBlanksAtTheEndOfALine) {
  EXPECT_EQ(aligned(Rows{{{"a"}, {""}, {"c"}}, {{"long"}, {""}, {""}}, {{""}, {"b"}}}),
            "a        c\nlong\n      b\n");
}

TEST(Aligned, CutsNothingWithoutAWidth) {
  const std::string name(1000, 'n');
  EXPECT_EQ(aligned(Rows{{{name}, {"1"}}}), name + "  1\n");
}

TEST(Aligned, CutsTheWidestColumnsUntilALineFits) {
  const Rows rows{{{std::string(60, 'n')}, {"20222"}, {std::string(50, 'h')}, {"running"}}};
  const auto lines = linesOf(aligned(rows, 80));
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(displayWidth(lines[0]), 80U);
  EXPECT_EQ(lines[0], std::string(30, 'n') + "…  20222  " + std::string(30, 'h') + "…  running");
}

TEST(Aligned, FitsEveryWidthDownToThreeColumnsForEach) {
  const Rows rows{{{"数据库数据库"}, {"20222"}, {"a-host-with-a-long-name"}},
                  {{"db1"}, {"7"}, {"h"}}};
  for (std::size_t width = 13; width <= 50; ++width) {
    for (const std::string& line : linesOf(aligned(rows, width))) {
      EXPECT_LE(displayWidth(line), width) << line;
    }
  }
  EXPECT_EQ(linesOf(aligned(rows, 1))[0], linesOf(aligned(rows, 13))[0]);
}

}  // namespace
}  // namespace sorvctl
