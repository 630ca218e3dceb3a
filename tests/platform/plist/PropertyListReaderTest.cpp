#include <gtest/gtest.h>

#include "platform/PropertyList.h"

namespace sorvane {
namespace {

using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Dictionary = PropertyList::Dictionary;

struct Reading {
  const char* name;
  std::string text;
  PropertyList value;
};

class PropertyListReads : public testing::TestWithParam<Reading> {};

TEST_P(PropertyListReads, AsTheEqualValue) {
  const Reading& reading = GetParam();
  EXPECT_EQ(PropertyList::parse(reading.text), reading.value)
      << PropertyList::parse(reading.text).description();
}

const Reading kReadings[] = {
    {"EmptyDictionary", "{}", Dictionary{}},
    {"EmptyArray", "()", Array{}},
    {"EmptyData", "<>", Data{""}},
    {"EmptyQuoted", "\"\"", ""},
    {"EmptyQuotedKey", "{ \"\" = \"\"; }", Dictionary{{"", ""}}},
    {"Word", "azAZ09_$/:.-", "azAZ09_$/:.-"},
    {"WordWithSlashes", "http://x", "http://x"},
    {"PathAtTheBeginning", "/usr/lib", "/usr/lib"},
    {"DoubleQuotes", "\"it's\"", "it's"},
    {"SingleQuotes", "'say \"x\"'", "say \"x\""},
    {"RawLineFeedInQuotes", "\"a\nb\"", "a\nb"},
    {"RawUtf8InQuotes", "\"h\u00e4\u20ac\U0001f600\"", "h\u00e4\u20ac\U0001f600"},
    {"CEscapes", R"("\a\b\f\n\r\t\v\\\"\'\?")", "\a\b\f\n\r\t\v\\\"'?"},
    {"EscapeThatMeansNothing", R"("\q\x41\u1234\8\{")", "qx41u12348{"},
    {"EscapeBeforeALineFeed", "\"a\\\nb\"", "a\nb"},
    {"EscapeBeforeACharacterBeyondAscii", "\"\\\u00e4\"", "\u00e4"},
    {"OctalOfOneToThreeDigits", R"("\7|\18|\101|\1011|\377")", "\a|\0018|A|A1|\u00ff"},
    {"Unicode", R"("\U00e4\U20AC\Uffff")", "\u00e4\u20ac\uffff"},
    {"SurrogatePair", R"("\Ud83d\UDE00\Udbff\Udfff")", "\U0001f600\U0010ffff"},
    {"Data", "<0fbd77 1c2735ae>", Data{"\x0f\xbd\x77\x1c\x27\x35\xae"}},
    {"DataWithBlanksAnywhere", "< 0F b\td\n>", Data{"\x0f\xbd"}},
    {"Array", "(a, \"b c\", <00>, (), {})",
     Array{"a", "b c", Data{std::string(1, '\0')}, Array{}, Dictionary{}}},
    {"CommaAfterTheLastElement", "(a, b,)", Array{"a", "b"}},
    {"Dictionary", "{a = 1; 'b c' = (x); d = {e = f;};}",
     Dictionary{{"a", "1"}, {"b c", Array{"x"}}, {"d", Dictionary{{"e", "f"}}}}},
    {"RepeatedKeyTheLastCounts", "{a = 1; b = 2; a = 3;}", Dictionary{{"a", "3"}, {"b", "2"}}},
    {"TopLevelWithoutBraces", "a = 1;\n\"b\" = (2);\n", Dictionary{{"a", "1"}, {"b", Array{"2"}}}},
    {"Comments", "/**/ // x\n{ // {\n a /* = */ = /* ; */ 1 /*/ */ ; } // end",
     Dictionary{{"a", "1"}}},
    {"CommentEndedByACarriageReturn", "a = 1; // x\rb = 2;", Dictionary{{"a", "1"}, {"b", "2"}}},
    {"CommentMarksInQuotes", "\"/* // */\"", "/* // */"},
    {"EveryBlank", "\t\n\v\f\r {\t\n\v\f\r }\t\n\v\f\r ", Dictionary{}},
    {"ByteOrderMark", "\xef\xbb\xbf{}", Dictionary{}},
};

INSTANTIATE_TEST_SUITE_P(Texts, PropertyListReads, testing::ValuesIn(kReadings),
                         [](const auto& each) { return std::string(each.param.name); });

struct Refusal {
  const char* name;
  std::string text;
  std::string error;
};

class PropertyListRefuses : public testing::TestWithParam<Refusal> {};

TEST_P(PropertyListRefuses, WithLineColumnAndReason) {
  try {
    static_cast<void>(PropertyList::parse(GetParam().text));
    FAIL() << "it was read";
  } catch (const PropertyListError& error) {
    EXPECT_EQ(error.what(), GetParam().error);
    EXPECT_EQ(error.what(), "line " + std::to_string(error.line) + ", column " +
                                std::to_string(error.column) + ": " + error.reason);
  }
}

const std::string kNul(1, '\0');

const Refusal kRefusals[] = {
    {"Nothing", "", "line 1, column 1: the text is empty"},
    {"BlanksAndCommentsAlone", " \n// x\n", "line 3, column 1: the text is empty"},
    {"ByteOrderMarkAlone", "\xef\xbb\xbf", "line 1, column 1: the text is empty"},
    {"SecondValue", "{} {}", "line 1, column 4: the end should be here instead of \"{\""},
    {"TwoWords", "a b", "line 1, column 3: \"=\" or the end should be here instead of \"b\""},
    {"MissingSemicolon", "{\n  a = 1\n}",
     "line 3, column 1: \";\" after the value should be here instead of \"}\""},
    {"MissingSemicolonWithoutBraces", "a = 1",
     "line 1, column 6: the text ends where \";\" after the value should be"},
    {"MissingEqualsSign", "{a;}",
     "line 1, column 3: \"=\" after the key should be here instead of \";\""},
    {"MissingValue", "{a = ;}", "line 1, column 6: a value should be here instead of \";\""},
    {"MissingKey", "{= a;}", "line 1, column 2: a key should be here instead of \"=\""},
    {"KeyThatIsData", "{<00> = a;}", "line 1, column 2: a key should be here instead of \"<\""},
    {"UnclosedDictionary", "{a = 1;", "line 1, column 8: the text ends where a key should be"},
    {"UnclosedArray", "(a", "line 1, column 3: the text ends where \",\" or \")\" should be"},
    {"ArrayWithoutComma", "(a b)",
     "line 1, column 4: \",\" or \")\" should be here instead of \"b\""},
    {"ArrayOfAComma", "(,)", "line 1, column 2: a value should be here instead of \",\""},
    {"UnclosedString", "{a =\n \"b;}",
     "line 2, column 2: the string that begins here does not end"},
    {"BackslashAtTheEnd", "\"a\\", "line 1, column 1: the string that begins here does not end"},
    {"UnclosedData", "<0011", "line 1, column 1: the data that begins here does not end"},
    {"OddDigits", "<001>", "line 1, column 5: the data has an odd number of digits"},
    {"DataThatIsNotHexadecimal", "<0g>",
     "line 1, column 3: a hexadecimal digit or \">\" should be here instead of \"g\""},
    {"UnclosedComment", "a = 1; /* x",
     "line 1, column 8: the comment that begins here does not end"},
    {"CommentInsideAWord", "a/*b*/",
     "line 1, column 3: \"=\" or the end should be here instead of \"*\""},
    {"OctalTooLarge", R"("\400")", "line 1, column 2: an octal escape above \\377"},
    {"OctalNul", R"("\0")", "line 1, column 2: an escape that stands for NUL"},
    {"UnicodeNul", R"("\U0000")", "line 1, column 2: an escape that stands for NUL"},
    {"ShortUnicode", R"("\U12")", "line 1, column 2: \\U without four hexadecimal digits"},
    {"LoneHighSurrogate", R"("\Ud800x")", "line 1, column 2: a lone surrogate"},
    {"HighSurrogateTwice", R"("\Ud800\Ud800")", "line 1, column 2: a lone surrogate"},
    {"LoneLowSurrogate", R"("\Udc00")", "line 1, column 2: a lone surrogate"},
    {"RawNul", "{a = \"" + kNul + "\";}", "line 1, column 7: a NUL in the text"},
    {"NotUtf8", "{\na = \"\xff\";}", "line 2, column 6: the text is not UTF-8"},
    {"WordBeyondAscii", "\u00e4", "line 1, column 1: a value should be here"},
    {"ColumnAfterAByteOrderMark", "\xef\xbb\xbf}",
     "line 1, column 1: a value should be here instead of \"}\""},
};

INSTANTIATE_TEST_SUITE_P(Texts, PropertyListRefuses, testing::ValuesIn(kRefusals),
                         [](const auto& each) { return std::string(each.param.name); });

std::string nested(int levels) { return std::string(levels, '(') + std::string(levels, ')'); }

TEST(PropertyListLimits, SixtyFourLevelsAreRead) {
  EXPECT_NE(PropertyList::parse(nested(64)).array(), nullptr);
  EXPECT_THROW(static_cast<void>(PropertyList::parse(nested(65))), PropertyListError);
  EXPECT_THROW(static_cast<void>(PropertyList::parse(std::string(1000000, '('))),
               PropertyListError);
}

TEST(PropertyListLimits, PairsWithoutBracesAreALevel) {
  EXPECT_NE(PropertyList::parse("a = " + nested(63) + ";").dictionary(), nullptr);
  EXPECT_THROW(static_cast<void>(PropertyList::parse("a = " + nested(64) + ";")),
               PropertyListError);
}

TEST(PropertyListLimits, LevelsSideBySideDoNotAddUp) {
  std::string text = "(";
  for (int i = 0; i < 200; ++i) {
    text += "(),{},";
  }
  EXPECT_EQ(PropertyList::parse(text + ")").array()->size(), 400U);
}

TEST(PropertyListLimits, SixteenMebibytesAreRead) {
  const std::string blanks(PropertyList::kMaximumBytes - 1, ' ');
  EXPECT_EQ(PropertyList::parse("a" + blanks), PropertyList("a"));
  EXPECT_THROW(static_cast<void>(PropertyList::parse("a" + blanks + " ")), PropertyListError);
}

TEST(TopLevelKeyLines, TellWhereEachKeyStands) {
  const std::map<std::string, int, std::less<>> expected{{"a", 2}, {"b c", 5}};
  EXPECT_EQ(topLevelKeyLines("// first\na = 1;\n/*\n\n*/ \"b c\" =\n {\n x = y;\n};"), expected);
  EXPECT_EQ(topLevelKeyLines("{\na = {\n b = c;\n a = d;};\n\n\"b c\"=1;}"),
            (std::map<std::string, int, std::less<>>{{"a", 2}, {"b c", 6}}));
}

TEST(TopLevelKeyLines, OfARepeatedKeyTellTheLast) {
  EXPECT_EQ(topLevelKeyLines("a = 1;\na = 2;").at("a"), 2);
}

TEST(TopLevelKeyLines, OfAnotherValueAreNone) {
  EXPECT_TRUE(topLevelKeyLines("({a = b;})").empty());
  EXPECT_TRUE(topLevelKeyLines("word").empty());
}

}  // namespace
}  // namespace sorvane
