#include <gtest/gtest.h>

#include <random>

#include "platform/PropertyList.h"

namespace sorvane {
namespace {

using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Dictionary = PropertyList::Dictionary;

TEST(PropertyListDescription, IndentsByFourAndSortsKeysByTheirBytes) {
  const PropertyList value = Dictionary{
      {"b", "2"},
      {"a", Dictionary{{"x y", "z"}, {"none", Dictionary{}}}},
      {"B", Array{"one", Array{}, Dictionary{{"k", "v"}}}},
      {"\u00e4", Data{"\x0f\xbd\x77\x1c\x27\x35\xae"}},
  };
  EXPECT_EQ(value.description(),
            "{\n"
            "    B = (\n"
            "        one,\n"
            "        (),\n"
            "        {\n"
            "            k = v;\n"
            "        }\n"
            "    );\n"
            "    a = {\n"
            "        none = {};\n"
            "        \"x y\" = z;\n"
            "    };\n"
            "    b = 2;\n"
            "    \"\\U00e4\" = <0fbd771c 2735ae>;\n"
            "}");
}

TEST(PropertyListDescription, OfAPlainValueIsThatValue) {
  EXPECT_EQ(PropertyList("word").description(), "word");
  EXPECT_EQ(PropertyList().description(), "{}");
  EXPECT_EQ(PropertyList(Array{}).description(), "()");
  EXPECT_EQ(PropertyList(Data{}).description(), "<>");
}

struct Text {
  std::string text;
  std::string written;
};

TEST(DescribeString, QuotesAndEscapesWhatIsNoPlainWord) {
  const Text texts[] = {
      {"word_09AZ", "word_09AZ"},
      {"", "\"\""},
      {"two words", "\"two words\""},
      {"a.b", "\"a.b\""},
      {"a-b", "\"a-b\""},
      {"/usr", "\"/usr\""},
      {"say \"x\" \\ it's", R"("say \"x\" \\ it's")"},
      {"\a\b\f\n\r\t\v", R"("\a\b\f\n\r\t\v")"},
      {"\x01\x1b\x7f", R"("\001\033\177")"},
      {"\x01"
       "1",
       R"("\0011")"},
      {"h\u00e4\u20ac\uffff", R"("h\U00e4\U20ac\Uffff")"},
      {"\U0001f600\U0010ffff", R"("\Ud83d\Ude00\Udbff\Udfff")"},
  };
  for (const Text& each : texts) {
    EXPECT_EQ(describeString(each.text), each.written);
    EXPECT_EQ(PropertyList::parse(each.written), PropertyList(each.text)) << each.written;
  }
}

TEST(DescribeString, OfBytesThatAreNoUtf8StaysPrintable) {
  EXPECT_EQ(describeString("a\xff\xc3"), R"("a\377\303")");
}

TEST(DescribeData, GroupsFourBytes) {
  EXPECT_EQ(describeData(""), "<>");
  EXPECT_EQ(describeData(std::string_view("\0\x01\xfe\xff", 4)), "<0001feff>");
  EXPECT_EQ(describeData("12345678"), "<31323334 35363738>");
  EXPECT_EQ(describeData("123456789"), "<31323334 35363738 39>");
}

/// Makes values of every kind, with every character that could need care.
class ValueMaker {
 public:
  PropertyList value(int levels) {
    switch (below(levels > 0 ? 4 : 2)) {
      case 0:
        return text();
      case 1:
        return Data{bytes()};
      case 2: {
        Array array;
        for (int i = below(5); i > 0; --i) {
          array.push_back(value(levels - 1));
        }
        return array;
      }
      default: {
        Dictionary dictionary;
        for (int i = below(5); i > 0; --i) {
          dictionary.insert_or_assign(text(), value(levels - 1));
        }
        return dictionary;
      }
    }
  }

 private:
  int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

  std::string text() {
    static const char* const kPieces[] = {
        "\"", "\\", "'", "\n", "\r", "\x01", "\x7f", "a",      "7",      " ",          "//", "/*",
        "*/", ";",  "{", "(",  "<",  "U",    "_",    "\u00e4", "\u20ac", "\U0001f600", "-",  "."};
    std::string result;
    for (int i = below(8); i > 0; --i) {
      result += kPieces[below(std::size(kPieces))];
    }
    return result;
  }

  std::string bytes() {
    std::string result;
    for (int i = below(10); i > 0; --i) {
      result += static_cast<char>(below(256));
    }
    return result;
  }

  std::mt19937 random_{20221};  // the same values at each run
};

TEST(PropertyListDescription, HasTheLengthThatIsToldWithoutMakingIt) {
  const char* const texts[] = {
      "{ }",
      "()",
      "<>",
      "word",
      "\"\"",
      "{ a = b; }",
      "{ \"two words\" = <0fbd771c 27>; \"\" = (); }",
      R"({ a = ( 1, { b = ( ); c = "\n\"\\\001\U00e4\Ud83d\Ude00"; } ); d = { e = { f = g; }; }; })"};
  for (const char* const text : texts) {
    const PropertyList list = PropertyList::parse(text);
    EXPECT_EQ(list.descriptionBytes(), list.description().size()) << text;
    const PropertyList outer(PropertyList::Dictionary{{"k", list}});
    const std::size_t around = std::string("{\n    k = ;\n}").size();
    EXPECT_EQ(list.descriptionBytes(1), outer.description().size() - around) << text;
  }
  for (const char* const text :
       {"", "word", "two words", "\n\x01\x7f", "\u00e4\U0001f600", "\xff"}) {
    EXPECT_EQ(describedStringBytes(text), describeString(text).size()) << text;
  }
}

TEST(PropertyListDescription, ReadsBackEqual) {
  ValueMaker maker;
  for (int i = 0; i < 3000; ++i) {
    const PropertyList value = maker.value(4);
    const std::string written = value.description();
    ASSERT_EQ(PropertyList::parse(written), value) << written;
    for (const char c : written) {
      ASSERT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << written;
    }
  }
}

}  // namespace
}  // namespace sorvane
