#include <gtest/gtest.h>

#include <vector>

#include "registry/ChangeOrder.h"

namespace sorvane {
namespace {

using Indices = std::vector<ChangeOrder::Index>;
constexpr std::size_t kEnough = 100;

Indices inOrder(const ChangeOrder& order) {
  Indices all;
  for (auto index = order.oldest(); index != ChangeOrder::kNone; index = order.newerThan(index)) {
    all.push_back(index);
  }
  Indices backwards;
  for (auto index = order.newest(); index != ChangeOrder::kNone; index = order.olderThan(index)) {
    backwards.insert(backwards.begin(), index);
  }
  EXPECT_EQ(backwards, all);
  return all;
}

/// Things 3, 5 and 1, changed in this order with the numbers 10, 20 and 30.
struct ChangeOrderTest : testing::Test {
  ChangeOrderTest() {
    order_.makeNewest(3, 10);
    order_.makeNewest(5, 20);
    order_.makeNewest(1, 30);
  }
  /// The first one that has changed after a number, by a search that is not interrupted.
  [[nodiscard]] ChangeOrder::Index firstAfter(ChangeOrder::Number number) const {
    ChangeOrder::Search search;
    std::size_t steps = kEnough;
    EXPECT_TRUE(order_.find(number, search, steps));
    return search.at;
  }

  ChangeOrder order_{8};
};

TEST_F(ChangeOrderTest, HasThingsInTheOrderOfTheirLastChanges) {
  EXPECT_EQ(inOrder(order_), (Indices{3, 5, 1}));
  order_.makeNewest(3, 40);
  EXPECT_EQ(inOrder(order_), (Indices{5, 1, 3}));
  order_.makeNewest(1, 50);
  order_.makeNewest(1, 60);
  EXPECT_EQ(inOrder(order_), (Indices{5, 3, 1}));
  EXPECT_EQ(order_.numberOf(1), 60U);
  EXPECT_FALSE(order_.contains(0));
}

TEST_F(ChangeOrderTest, LosesThingsFromEachPlace) {
  order_.remove(5);
  EXPECT_EQ(inOrder(order_), (Indices{3, 1}));
  order_.remove(1);
  EXPECT_EQ(inOrder(order_), Indices{3});
  order_.remove(3);
  EXPECT_EQ(inOrder(order_), Indices());
  order_.makeNewest(2, 40);
  EXPECT_EQ(inOrder(order_), Indices{2});
}

TEST_F(ChangeOrderTest, PutsOneInThePlaceOfAnother) {
  order_.replace(5, 0);
  order_.replace(3, 2);
  order_.replace(1, 4);
  EXPECT_EQ(inOrder(order_), (Indices{2, 0, 4}));
  EXPECT_EQ(order_.numberOf(0), 20U);
  EXPECT_FALSE(order_.contains(5));
  order_.makeNewest(0, 40);
  EXPECT_EQ(inOrder(order_), (Indices{2, 4, 0}));
}

TEST_F(ChangeOrderTest, IsTheSameWithOtherIndices) {
  ChangeOrder moved(16);
  moved.takeOver(order_, {0, 11, 0, 13, 0, 15, 0, 0});
  EXPECT_EQ(inOrder(moved), (Indices{13, 15, 11}));
  EXPECT_EQ(moved.numberOf(15), 20U);
  ChangeOrder none(16);
  none.takeOver(ChangeOrder(), {});
  EXPECT_EQ(inOrder(none), Indices());
}

TEST_F(ChangeOrderTest, FindsTheFirstOneAfterANumber) {
  EXPECT_EQ(firstAfter(0), 3U);
  EXPECT_EQ(firstAfter(9), 3U);
  EXPECT_EQ(firstAfter(10), 5U);
  EXPECT_EQ(firstAfter(29), 1U);
  EXPECT_EQ(firstAfter(30), ChangeOrder::kNone);
  EXPECT_TRUE(order_.isFirstAfter(10, 5));
  EXPECT_FALSE(order_.isFirstAfter(10, 1));
  EXPECT_FALSE(order_.isFirstAfter(10, 3));
}

TEST_F(ChangeOrderTest, TakesOneStepForEachChangeSince) {
  order_.makeNewest(7, 35);
  ChangeOrder::Search search;
  std::size_t steps = 2;
  EXPECT_TRUE(order_.find(10, search, steps));
  EXPECT_EQ(steps, 0U);
  search = {};
  EXPECT_TRUE(order_.find(30, search, steps)) << "the newest one takes none";
}

TEST_F(ChangeOrderTest, TakesNoStepWhereEverythingHasChangedSince) {
  ChangeOrder::Search search;
  std::size_t steps = 0;
  EXPECT_TRUE(order_.find(9, search, steps));
  EXPECT_EQ(search.at, 3U);
}

TEST_F(ChangeOrderTest, GoesOnWithASearchThatWasInterrupted) {
  order_.makeNewest(7, 35);
  ChangeOrder::Search search;
  for (int time = 0; time < 2; ++time) {
    std::size_t steps = 1;
    ASSERT_EQ(order_.find(10, search, steps), time == 1);
    steps = 0;
  }
  EXPECT_EQ(search.at, 5U);
}

TEST_F(ChangeOrderTest, BeginsASearchAnewWhenItsPlaceHasChangedMeanwhile) {
  order_.makeNewest(7, 35);
  ChangeOrder::Search search;
  std::size_t steps = 1;
  ASSERT_FALSE(order_.find(10, search, steps));
  order_.makeNewest(search.at, 40);
  steps = 0;
  ASSERT_FALSE(order_.find(10, search, steps));
  order_.remove(search.at);
  steps = kEnough;
  EXPECT_TRUE(order_.find(10, search, steps));
  EXPECT_EQ(search.at, 5U);
}

}  // namespace
}  // namespace sorvane
