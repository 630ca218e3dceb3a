#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>

#include "platform/Message.h"
#include "support/WireBytes.h"

namespace sorvane {
namespace {

using test::entry;

const std::string kNul(1, '\0');

TEST(Message, KeepsTheOrderInWhichItsKeysCame) {
  const Message message({{"z", "1"}, {"a", "2"}, {"m", "3"}});
  ASSERT_EQ(message.entries().size(), 3U);
  EXPECT_EQ(message.entries()[0].key, "z");
  EXPECT_EQ(message.entries()[1].key, "a");
  EXPECT_EQ(message.entries()[2].key, "m");
}

TEST(Message, ATextTravelsWithItsNul) {
  const Message message({{"result", "succeed"}});
  EXPECT_EQ(message.data("result"), "succeed" + kNul);
  EXPECT_EQ(message.body(), entry("result", "succeed" + kNul));
}

TEST(Message, DataTravelsExactlyAsItIs) {
  Message message;
  message.setData("data", std::string("a\0b", 3));
  EXPECT_EQ(message.body(), entry("data", std::string("a\0b", 3)));
}

TEST(Message, SettingAKeyAgainReplacesItInItsPlace) {
  Message message({{"a", "1"}, {"b", "2"}});
  message.setText("a", "longer than before");
  ASSERT_EQ(message.entries().size(), 2U);
  EXPECT_EQ(message.entries()[0].key, "a");
  EXPECT_EQ(message.text("a"), "longer than before");
  EXPECT_EQ(message.text("b"), "2");
}

TEST(Message, TakesAKeyOfTheGreatestLength) {
  const std::string key(kMaximumKeyBytes, 'k');
  Message message;
  message.setText(key, "1").setData("other", "2");
  EXPECT_EQ(message.text(key), "1");
  EXPECT_EQ(message.body(), entry(key, "1" + kNul) + entry("other", "2"));
}

TEST(Message, RefusesAKeyThatIsTooLongAndStaysAsItWas) {
  const std::string key(kMaximumKeyBytes + 1, 'k');
  Message message({{"a", "1"}});
  EXPECT_THROW(message.setText(key, "2"), NSException);
  EXPECT_THROW(message.setData(key, "2"), NSException);
  EXPECT_THROW(Message({{key, ""}}), NSException);
  EXPECT_EQ(message.body(), entry("a", "1" + kNul));
  EXPECT_EQ(message.text("a"), "1");
}

#if SIZE_MAX > 0xFFFFFFFF
/// A value of that length that nobody may read: there are not so many bytes.
std::string_view valueOf(std::uint64_t bytes) { return {"", bytes}; }

TEST(Message, RefusesAValueThatIsTooLongAndStaysAsItWas) {
  Message message({{"a", "1"}});
  EXPECT_THROW(message.setData("a", valueOf(kMaximumValueBytes + 1)), NSException);
  EXPECT_THROW(message.setText("a", valueOf(kMaximumValueBytes)), NSException) << "with its NUL";
  EXPECT_THROW(message.setData("b", valueOf(kMaximumValueBytes - 7)), NSException)
      << "more than a frame with the entry before it";
  EXPECT_EQ(message.body(), entry("a", "1" + kNul));
}

TEST(MessageWriter, RefusesAValueThatIsTooLongAndWritesNothing) {
  ByteBuffer buffer;
  MessageWriter writer(buffer);
  EXPECT_THROW(writer.data("a", valueOf(kMaximumValueBytes + 1)), NSException);
  EXPECT_THROW(writer.text("a", valueOf(kMaximumValueBytes)), NSException) << "with its NUL";
  EXPECT_TRUE(buffer.empty());
}
#endif

TEST(MessageWriter, RefusesAKeyThatIsTooLongAndWritesNothing) {
  const std::string key(kMaximumKeyBytes + 1, 'k');
  ByteBuffer buffer;
  MessageWriter writer(buffer);
  writer.text("a", "1");
  EXPECT_THROW(writer.text(key, "2"), NSException);
  EXPECT_THROW(writer.data(key, "2"), NSException);
  EXPECT_EQ(buffer.view(), entry("a", "1" + kNul));
}

TEST(MessageWriter, RaisesInsteadOfWritingMoreThanItMay) {
  const std::string before = entry("f", "2");
  const std::string after = entry("g", "34");
  const std::string whole =
      entry("a", "text" + kNul) + entry("b", "xyz") + before + entry("c", "1" + kNul) + after;
  for (const std::size_t less : {0U, 1U}) {
    ByteBuffer written;
    MessageWriter writer(written, whole.size() - less);
    writer.text("a", "text");
    writer.data("b", "xyz");
    if (less == 0) {
      writer.textBetween(before, "c", "1", after);
      EXPECT_EQ(written.view(), whole);
    }
    const std::size_t size = written.size();
    EXPECT_THROW(writer.textBetween(before, "c", "1", after), NSException);
    const std::string tooLong(before.size() + after.size() + 10, 'x');
    EXPECT_THROW(writer.text("d", tooLong), NSException);
    EXPECT_THROW(writer.data("e", tooLong), NSException);
    EXPECT_EQ(written.size(), size);
  }
}

TEST(Message, IsReadInPlace) {
  const std::string body = entry("action", "hostInfo" + kNul) + entry("", "x");
  Message message;
  ASSERT_EQ(message.readBody(body), nullptr);
  EXPECT_EQ(message.body().data(), body.data());
  EXPECT_GE(message.entries()[0].key.data(), body.data());
  EXPECT_LT(message.entries()[0].key.data(), body.data() + body.size());
  EXPECT_EQ(message.text("action"), "hostInfo");
  EXPECT_EQ(message.data(""), "x") << "an empty key is a key";
}

TEST(Message, AnEmptyBodyIsAnEmptyDictionary) {
  Message message;
  EXPECT_EQ(message.readBody(""), nullptr);
  EXPECT_TRUE(message.entries().empty());
}

static_assert(!std::is_copy_constructible_v<Message> && !std::is_copy_assignable_v<Message>,
              "whether a message owns its bytes must be visible where it is copied");

TEST(Message, ThatIsOwnedOutlivesTheBytesInWhichItLay) {
  std::string body = entry("k", "v" + kNul) + entry("", std::string(1000, 'y'));
  Message lying;
  ASSERT_EQ(lying.readBody(body), nullptr);
  const Message owned = lying.owned();
  const std::string before = body;
  body.assign(body.size(), 'x');
  EXPECT_EQ(owned.body(), before);
  EXPECT_EQ(owned.text("k"), "v");
  EXPECT_EQ(owned.data(""), std::string(1000, 'y'));
}

TEST(Message, ThatIsOwnedStandsForItself) {
  Message first({{"k", "v"}});
  const Message second = first.owned();
  first.setText("k", "changed");
  EXPECT_EQ(second.text("k"), "v");
  EXPECT_TRUE(Message().owned().entries().empty());
}

TEST(Message, ThatIsMovedKeepsItsEntries) {
  Message small({{"k", "v"}});  // short enough to lie inside the string object itself
  Message moved(std::move(small));
  EXPECT_EQ(moved.text("k"), "v");
  Message assigned({{"other", "text"}});
  assigned = std::move(moved);
  EXPECT_EQ(assigned.body(), Message({{"k", "v"}}).body());
  EXPECT_TRUE(moved.entries().empty());  // NOLINT(bugprone-use-after-move): what is promised
}

struct Malformed {
  const char* name;
  std::string body;
  const char* reason;
};

class MalformedBody : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedBody, IsToldAndLeavesAnEmptyMessage) {
  Message message;
  ASSERT_EQ(message.readBody(entry("before", "1")), nullptr);
  EXPECT_STREQ(message.readBody(GetParam().body), GetParam().reason);
  EXPECT_TRUE(message.entries().empty());
  EXPECT_TRUE(message.body().empty());
}

std::string manyKeysWithOneTwice() {
  std::string body;
  for (int i = 0; i < 100; ++i) {
    body += entry("key" + std::to_string(i), "");
  }
  return body + entry("key42", "");
}

INSTANTIATE_TEST_SUITE_P(
    Each, MalformedBody,
    testing::Values(
        Malformed{"HeaderCut", std::string("\0\1\0\0\0", 5), "an entry runs past the body"},
        Malformed{"ValueCut", entry("k", "value").substr(0, 9), "an entry runs past the body"},
        Malformed{"HugeValue", std::string("\0\1\xff\xff\xff\xff", 6) + "kv",
                  "an entry runs past the body"},
        Malformed{"LengthsWhoseSumIsFourIn32Bits",
                  std::string("\0\5\xff\xff\xff\xffping", 10) + entry(std::string(0x2020, ' '), ""),
                  "an entry runs past the body"},
        Malformed{"SecondEntryCut", entry("a", "1") + std::string(3, '\0'),
                  "an entry runs past the body"},
        Malformed{"RepeatedKey", entry("a", "1") + entry("b", "2") + entry("a", "3"),
                  "a key is repeated"},
        Malformed{"RepeatedEmptyKey", entry("", "1") + entry("", "2"), "a key is repeated"},
        Malformed{"RepeatedAmongMany", manyKeysWithOneTwice(), "a key is repeated"},
        Malformed{"KeyNotUtf8", entry("\xff", "1"), "a key is not UTF-8 text"},
        Malformed{"KeyWithNul", entry(std::string("a\0b", 3), "1"), "a key is not UTF-8 text"},
        Malformed{"KeyWithNulAndUmlaut", entry(std::string("\xc3\xa4\0", 3), "1"),
                  "a key is not UTF-8 text"}),
    [](const auto& each) { return each.param.name; });

TEST(Message, AKeyMayHoldAnyUtf8Text) {
  Message message;
  EXPECT_EQ(message.readBody(entry("Schl\xc3\xbcssel \xf0\x9f\x97\x9d", "1")), nullptr);
}

TEST(Message, AHundredThousandKeysAreReadInTimeThatIsNotQuadratic) {
  std::string body;
  for (int i = 0; i < 100000; ++i) {
    body += entry(std::to_string(i), "");
  }
  Message message;
  EXPECT_EQ(message.readBody(body), nullptr);
  EXPECT_EQ(message.entries().size(), 100000U);
}

TEST(TextOfValue, EndsAtTheFirstNul) {
  EXPECT_EQ(textOfValue(std::string("db1\0rest", 8)), "db1");
  EXPECT_EQ(textOfValue("db1"), "db1") << "all of the bytes when there is no NUL";
  EXPECT_EQ(textOfValue(kNul), "") << "the empty text is a text";
}

TEST(TextOfValue, NoBytesOrNoUtf8AreNoText) {
  EXPECT_EQ(textOfValue(""), std::nullopt);
  EXPECT_EQ(textOfValue("\xff" + kNul), std::nullopt);
  EXPECT_EQ(textOfValue(std::string("ok\0\xff", 4)), "ok") << "what follows the NUL is ignored";
}

TEST(WholeTextOfValue, IsAllBytesBeforeTheOnlyNulAtTheEnd) {
  EXPECT_EQ(wholeTextOfValue("db1" + kNul), "db1");
  EXPECT_EQ(wholeTextOfValue("\xc3\xa4" + kNul), "\xc3\xa4");
  EXPECT_EQ(wholeTextOfValue(kNul), "") << "the empty text is a text";
}

TEST(WholeTextOfValue, OfAnythingElseIsNone) {
  EXPECT_EQ(wholeTextOfValue(""), std::nullopt);
  EXPECT_EQ(wholeTextOfValue("db1"), std::nullopt) << "no NUL";
  EXPECT_EQ(wholeTextOfValue(std::string("db1\0rest", 8)), std::nullopt);
  EXPECT_EQ(wholeTextOfValue("a" + kNul + "b" + kNul), std::nullopt) << "two texts";
  EXPECT_EQ(wholeTextOfValue("\xff" + kNul), std::nullopt);
}

TEST(Message, ANeededTextThatIsMissingOrNoTextRaises) {
  Message message({{"text", "x"}});
  message.setData("empty", "").setData("binary", "\xff");
  EXPECT_EQ(message.requiredText("text"), "x");
  EXPECT_THROW((void)message.requiredText("missing"), NSException);
  EXPECT_THROW((void)message.requiredText("empty"), NSException);
  EXPECT_THROW((void)message.requiredText("binary"), NSException);
}

TEST(Message, DescribesTextsAsStringsAndOtherBytesAsData) {
  Message message({{"action", "host info"}});
  message.setData("raw", "\x01\x02").setData("twoTexts", std::string("a\0b\0", 4));
  EXPECT_EQ(message.description(),
            "{\n    action = \"host info\";\n    raw = <0102>;\n    twoTexts = <61006200>;\n}");
}

}  // namespace
}  // namespace sorvane
