#include <gtest/gtest.h>

#include <array>
#include <string>

#include "registry/TextBlock.h"

namespace sorvane {
namespace {

constexpr std::array<std::string_view, 1> kOne = {""};
constexpr std::array<std::string_view, 2> kTwo = {"", "key"};
constexpr std::array<std::string_view, 3> kThree = {"", "", ""};
constexpr std::array<std::string_view, 3> kMixed = {"number", "", "type"};
constexpr std::array<std::string_view, 3> kEntries = {"a", "bb", "ccc"};

TEST(TextBlock, HoldsNothingAtFirst) {
  const TextBlock<kThree> block;
  for (std::size_t index = 0; index < 3; ++index) {
    EXPECT_FALSE(block.text(index).has_value());
  }
}

TEST(TextBlock, TellsNilFromTheEmptyText) {
  TextBlock<kThree> block;
  block.setAll({std::nullopt, "", std::nullopt});
  EXPECT_FALSE(block.text(0).has_value());
  EXPECT_EQ(block.text(1), "");
  EXPECT_FALSE(block.text(2).has_value());
}

TEST(TextBlock, KeepsTextsApartWhateverStandsBetweenThem) {
  const std::optional<std::string_view> samples[] = {std::nullopt, "", "a", "longer text",
                                                     std::string_view("n\0l", 3)};
  for (const auto& first : samples) {
    for (const auto& second : samples) {
      for (const auto& third : samples) {
        TextBlock<kThree> plain;
        plain.setAll({first, second, third});
        EXPECT_EQ(plain.text(0), first);
        EXPECT_EQ(plain.text(1), second);
        EXPECT_EQ(plain.text(2), third);
        TextBlock<kMixed> mixed;
        mixed.setAll({first, second, third});
        EXPECT_EQ(mixed.text(0), first);
        EXPECT_EQ(mixed.text(1), second);
        EXPECT_EQ(mixed.text(2), third);
      }
    }
  }
}

TEST(TextBlock, SettingOneTextLeavesTheOthers) {
  TextBlock<kThree> block;
  block.setAll({"one", "two", std::nullopt});
  block.set(1, "second");
  EXPECT_EQ(block.text(0), "one");
  EXPECT_EQ(block.text(1), "second");
  EXPECT_FALSE(block.text(2).has_value());
  block.set(1, std::nullopt);
  EXPECT_EQ(block.text(0), "one");
  EXPECT_FALSE(block.text(1).has_value());
}

TEST(TextBlock, MayBeGivenItsOwnViews) {
  TextBlock<kTwo> block;
  block.setAll({"left", "right"});
  block.setAll({block.text(1), block.text(0)});
  EXPECT_EQ(block.text(0), "right");
  EXPECT_EQ(block.text(1), "left");
}

TEST(TextBlock, ThatLosesItsLastTextHoldsNothing) {
  TextBlock<kOne> block;
  block.set(0, "text");
  block.set(0, std::nullopt);
  EXPECT_FALSE(block.text(0).has_value());
}

TEST(TextBlock, AnswersTextsWithKeysAsTheEntriesOfAMessage) {
  TextBlock<kEntries> block;
  EXPECT_EQ(block.entries(0, 2), "");
  block.setAll({"one", std::nullopt, ""});
  EXPECT_EQ(block.entries(0, 2), (Message{{"a", "one"}, {"ccc", ""}}.body()));
  EXPECT_EQ(block.entries(0, 1), (Message{{"a", "one"}}.body()));
  EXPECT_EQ(block.entries(1, 1), "");
  EXPECT_EQ(block.entries(1, 2), (Message{{"ccc", ""}}.body()));
}

TEST(TextBlock, TellsItsSizeAndWhatItWouldBeWithOtherTexts) {
  using Mixed = TextBlock<kMixed>;
  Mixed block;
  EXPECT_EQ(block.bytes(), 0U);
  EXPECT_EQ(Mixed::bytesWith({}), 0U);
  constexpr std::size_t kWords = 3 * 4;
  const std::pair<Mixed::Texts, std::size_t> samples[] = {
      {{std::nullopt, "", std::nullopt}, kWords},
      {{std::nullopt, "texts", std::nullopt}, kWords + 5},
      {{"17", std::nullopt, std::nullopt}, kWords + textEntryBytes("number", 2)},
      {{"17", "x", "db"}, kWords + textEntryBytes("number", 2) + 1 + textEntryBytes("type", 2)},
  };
  for (const auto& [texts, bytes] : samples) {
    EXPECT_EQ(Mixed::bytesWith(texts), bytes);
    block.setAll(texts);
    EXPECT_EQ(block.bytes(), bytes);
  }
  block.setAll({});
  EXPECT_EQ(block.bytes(), 0U);
}

TEST(TextBlock, KeepsWhatItReplacesUntilTheEndOfTheMessage) {
  releaseRetiredTexts();
  TextBlock<kOne> block;
  block.set(0, "first");
  EXPECT_EQ(retiredTexts, 0U) << "nothing was replaced";
  const std::string_view first = *block.text(0);
  block.replaceWith(TextBlock<kOne>({"second"}));
  EXPECT_EQ(retiredTexts, 1U);
  EXPECT_EQ(first, "first");
  EXPECT_EQ(block.text(0), "second");
  releaseRetiredTexts();
}

TEST(TextBlock, RefusesTextsThatItCannotCount) {
  TextBlock<kTwo> block;
  block.set(0, "kept");
  // A view is never read before its length was refused.
  const std::string_view huge("x", std::size_t{1} << 31);
  EXPECT_THROW(block.set(1, huge), NSException);
  TextBlock<kOne> one;
  const std::string_view withItsWordTooLong("x", (std::size_t{1} << 31) - 4);
  EXPECT_THROW(one.set(0, withItsWordTooLong), NSException);
  EXPECT_EQ(block.text(0), "kept");
}

}  // namespace
}  // namespace sorvane
