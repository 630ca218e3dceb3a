#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "registry/RemovedNames.h"

namespace sorvane {
namespace {

using Names = std::vector<std::string>;

void add(RemovedNames& removed, const std::string& name, RemovedNames::Number number) {
  removed.add(std::string(name), PortName(name).hash(), number);
}

/// The oldest removal first.
Names namesOf(const RemovedNames& removed) {
  Names names;
  const ChangeOrder& order = removed.order();
  for (auto index = order.oldest(); index != ChangeOrder::kNone; index = order.newerThan(index)) {
    names.emplace_back(removed.nameAt(index));
  }
  EXPECT_EQ(names.size(), removed.count());
  return names;
}

TEST(RemovedNames, HasEachNameOnceWithItsLastRemoval) {
  RemovedNames removed({});
  add(removed, "db1", 1);
  add(removed, "db2", 2);
  add(removed, "db1", 3);
  EXPECT_EQ(namesOf(removed), (Names{"db2", "db1"}));
  EXPECT_EQ(removed.order().numberOf(removed.order().newest()), 3U);
  EXPECT_EQ(removed.forgottenUpTo(), 0U);
}

TEST(RemovedNames, ForgetsTheOldestRemovalsWhenThereAreTooMany) {
  RemovedNames removed({.names = 3});
  for (const int number : {1, 2, 3, 4, 5}) {
    add(removed, "db" + std::to_string(number), static_cast<RemovedNames::Number>(number));
  }
  EXPECT_EQ(namesOf(removed), (Names{"db3", "db4", "db5"}));
  EXPECT_EQ(removed.forgottenUpTo(), 2U);
  add(removed, "db3", 6);
  EXPECT_EQ(removed.forgottenUpTo(), 2U) << "one that comes and goes pushes no other out";
  add(removed, "db1", 7);
  EXPECT_EQ(namesOf(removed), (Names{"db5", "db3", "db1"}));
}

TEST(RemovedNames, CountsNoMoreThanItHasWhenAShortNameComesAfterALongOne) {
  RemovedNames removed({.names = 1});
  add(removed, std::string(1000, 'n'), 1);
  add(removed, "db1", 2);
  EXPECT_EQ(removed.bytes(), RemovedNames::kNameBytes);
  add(removed, "db2", 3);
  EXPECT_EQ(removed.bytes(), RemovedNames::kNameBytes);
  add(removed, "db3", 4);
  EXPECT_EQ(namesOf(removed), Names{"db3"});
}

TEST(RemovedNames, ForgetsTheOldestRemovalsWhenTheyTakeTooMuch) {
  RemovedNames removed({.bytes = 5000});
  const std::string longName(1000, 'n');
  for (int number = 1; number <= 6; ++number) {
    add(removed, longName + std::to_string(number), static_cast<RemovedNames::Number>(number));
    EXPECT_LE(removed.bytes(), 5000U);
  }
  EXPECT_EQ(removed.count(), 4U);
  EXPECT_EQ(removed.forgottenUpTo(), 2U);
  add(removed, std::string(4900, 'n'), 7);
  EXPECT_EQ(removed.count(), 1U);
  EXPECT_EQ(removed.forgottenUpTo(), 6U);
  add(removed, std::string(5000, 'n'), 8);
  EXPECT_EQ(removed.count(), 0U) << "one that is too long by itself";
  EXPECT_EQ(removed.forgottenUpTo(), 8U);
  EXPECT_EQ(removed.bytes(), 0U);
}

TEST(RemovedNames, FindsEachNameAmongManyThatComeAndGo) {
  constexpr int kNames = 5000;
  RemovedNames removed({.names = kNames});
  RemovedNames::Number number = 0;
  for (int round = 0; round < 3; ++round) {
    for (int each = 0; each < kNames; ++each) {
      add(removed, std::to_string(each), ++number);
    }
    ASSERT_EQ(removed.count(), static_cast<std::size_t>(kNames));
  }
  EXPECT_EQ(removed.forgottenUpTo(), 0U);
  for (int each = 0; each < kNames; ++each) {
    add(removed, "another" + std::to_string(each), ++number);
  }
  EXPECT_EQ(removed.forgottenUpTo(), RemovedNames::Number{3 * kNames});
  EXPECT_EQ(namesOf(removed).front(), "another0");
}

TEST(RemovedNames, RemembersAsManyAsItsUsualLimitsSay) {
  RemovedNames removed({});
  for (RemovedNames::Number number = 1; number <= 65537; ++number) {
    add(removed, std::to_string(number), number);
  }
  EXPECT_EQ(removed.count(), 65536U);
  EXPECT_EQ(removed.forgottenUpTo(), 1U);
  EXPECT_LE(removed.bytes(), std::size_t{4} << 20);
}

}  // namespace
}  // namespace sorvane
