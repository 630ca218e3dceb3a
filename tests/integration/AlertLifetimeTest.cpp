// The hour that an alert lives, with a clock that the test moves.
#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>

#include "integration/Client.h"
#include "integration/ShiftedClock.h"

namespace sorvane::test {
namespace {

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kMargin = 100;  // more than the test takes

class AlertLifetime : public ::testing::Test {
 protected:
  void SetUp() override {
    clock_.launch(server_);
    tool_.emplace(firstClientOf(server_));
    database_.emplace(server_);
    database_->registers("db1");
  }

  void setsAlert(const char* text) {
    ASSERT_EQ(tool_->resultOf("setAlertState", {{"databaseName", "db1"}, {"state", text}}),
              "success");
  }
  std::string alertsBuiltAnew() {
    tool_->acts("needsRefresh");  // drops the state list, and with it both are built
    return tool_->alerts();
  }

  const ShiftedClock clock_;
  Daemon server_;
  std::optional<Client> tool_;
  std::optional<Client> database_;
};

TEST_F(AlertLifetime, IsOneHour) {
  setsAlert("disk full");
  clock_.setAhead(kHour - kMargin);
  EXPECT_EQ(alertsBuiltAnew(), "db1:disk full");
  clock_.setAhead(kHour + kMargin);
  EXPECT_EQ(alertsBuiltAnew(), "");
  clock_.setAhead(0);
  EXPECT_EQ(alertsBuiltAnew(), "") << "gone for good";
  setsAlert("disk full");
  EXPECT_EQ(alertsBuiltAnew(), "db1:disk full");
}

TEST_F(AlertLifetime, BeginsAgainWhenTheAlertIsSetAgain) {
  setsAlert("disk full");
  clock_.setAhead(kHour - kMargin);
  setsAlert("disk full");
  clock_.setAhead(2 * kHour - 3 * kMargin);
  EXPECT_EQ(alertsBuiltAnew(), "db1:disk full");
  clock_.setAhead(2 * kHour);
  EXPECT_EQ(alertsBuiltAnew(), "");
}

TEST_F(AlertLifetime, IsLookedAtOnlyWhenTheListsAreBuilt) {
  setsAlert("disk full");
  EXPECT_EQ(tool_->alerts(), "db1:disk full");
  clock_.setAhead(2 * kHour);
  EXPECT_EQ(tool_->alerts(), "db1:disk full") << "both lists still stand";
  tool_->acts("setAlertState");  // fails, and drops the alert list all the same
  EXPECT_EQ(tool_->alerts(), "");
}

TEST_F(AlertLifetime, IsNotThatOfAState) {
  ASSERT_EQ(tool_->resultOf("setDatabaseState", {{"databaseName", "db1"}, {"state", "stopping"}}),
            "success");
  clock_.setAhead(1000 * kHour);
  tool_->acts("needsRefresh");
  EXPECT_EQ(tool_->states(), "db1:stopping");
}

TEST_F(AlertLifetime, GoesByTheClockOfTheTimestamp) {
  const double before = std::stod(tool_->changeTimestamp());
  clock_.setAhead(10 * kHour);
  tool_->acts("needsRefresh");
  const double passed = std::stod(tool_->changeTimestamp()) - before;
  EXPECT_GE(passed, 10.0 * kHour);
  EXPECT_LT(passed, 10.0 * kHour + kMargin);
}

}  // namespace
}  // namespace sorvane::test
