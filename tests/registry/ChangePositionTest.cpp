#include <gtest/gtest.h>

#include <limits>

#include "registry/ChangePosition.h"

namespace sorvane {
namespace {

constexpr auto kMost = std::numeric_limits<std::uint64_t>::max();

void expectSame(const ChangePosition& position) {
  const std::string text = position.text();
  EXPECT_LE(text.size(), 64U);
  EXPECT_EQ(text.find_first_not_of("0123456789"), std::string::npos) << text;
  const auto read = ChangePosition::from(text);
  ASSERT_TRUE(read) << text;
  EXPECT_EQ(read->number, position.number);
  EXPECT_EQ(read->begun, position.begun);
  EXPECT_EQ(read->slot, position.slot);
  EXPECT_EQ(read->gone, position.gone);
  EXPECT_EQ(read->moves, position.moves);
}

TEST(ChangePosition, IsWhatItsTextSays) {
  expectSame({});
  expectSame({.number = 7});
  expectSame({.number = kMost});
  expectSame({.number = 7, .begun = 9});
  expectSame({.number = 7, .slot = 0});
  expectSame({.number = 0, .begun = 3, .slot = 12, .gone = 34, .moves = 56});
  expectSame(
      {.number = kMost, .begun = kMost, .slot = 4294967294, .gone = 4294967294, .moves = 9999});
}

TEST(ChangePosition, AtRestIsAShortNumber) {
  EXPECT_EQ(ChangePosition{.number = 100022}.text(), "100022");
}

TEST(ChangePosition, RefusesWhatItHasNotWritten) {
  const std::string none(20, '0');
  for (const std::string& text :
       {std::string(), std::string("-1"), std::string("+1"), std::string(" 1"), std::string("1 "),
        std::string("1x"), std::string("99999999999999999999"), std::string(21, '1'),
        std::string(40, '1'), std::string(65, '0'), std::string(1000, '1'),
        "1" + std::string(10, '9') + std::string(10, '0') + none + "0000",
        "1" + std::string(20, '0') + std::string(20, '9') + "0000"}) {
    EXPECT_FALSE(ChangePosition::from(text)) << text;
  }
}

}  // namespace
}  // namespace sorvane
