// The hour that an alert lives, with a clock that the test moves.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <string_view>

#include "integration/Client.h"

namespace sorvane::test {
namespace {

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kMargin = 100;  // more than the test takes

class AlertLifetime : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(shift_, std::string(sizeof(std::int64_t), '\0'));
    server_.launch({"-noexit"}, [this] {
      ::setenv("LD_PRELOAD", SORVANE_BINARY_DIR "/tests/libshifted_clock.so", 1);
      ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
      ::setenv("SHIFTED_CLOCK", shift_.c_str(), 1);
    });
    tool_.emplace(firstClientOf(server_));
    database_.emplace(server_);
    database_->registers("db1");
  }

  /// Sets the server's clock that far ahead of the system's.
  void clockIsAhead(std::int64_t seconds) {
    const int file = ::open(shift_.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::pwrite(file, &seconds, sizeof seconds, 0), static_cast<ssize_t>(sizeof seconds));
    ::close(file);
  }
  void setsAlert(const char* text) {
    ASSERT_EQ(tool_->resultOf("setAlertState", {{"databaseName", "db1"}, {"state", text}}),
              "success");
  }
  std::string alertsBuiltAnew() {
    tool_->acts("needsRefresh");  // drops the state list, and with it both are built
    return tool_->alerts();
  }

  TemporaryFolder folder_;
  std::filesystem::path shift_ = folder_ / "shift";
  Daemon server_;
  std::optional<Client> tool_;
  std::optional<Client> database_;
};

TEST_F(AlertLifetime, IsOneHour) {
  setsAlert("disk full");
  clockIsAhead(kHour - kMargin);
  EXPECT_EQ(alertsBuiltAnew(), "db1:disk full");
  clockIsAhead(kHour + kMargin);
  EXPECT_EQ(alertsBuiltAnew(), "");
  clockIsAhead(0);
  EXPECT_EQ(alertsBuiltAnew(), "") << "gone for good";
  setsAlert("disk full");
  EXPECT_EQ(alertsBuiltAnew(), "db1:disk full");
}

TEST_F(AlertLifetime, BeginsAgainWhenTheAlertIsSetAgain) {
  setsAlert("disk full");
  clockIsAhead(kHour - kMargin);
  setsAlert("disk full");
  clockIsAhead(2 * kHour - 3 * kMargin);
  EXPECT_EQ(alertsBuiltAnew(), "db1:disk full");
  clockIsAhead(2 * kHour);
  EXPECT_EQ(alertsBuiltAnew(), "");
}

TEST_F(AlertLifetime, IsLookedAtOnlyWhenTheListsAreBuilt) {
  setsAlert("disk full");
  EXPECT_EQ(tool_->alerts(), "db1:disk full");
  clockIsAhead(2 * kHour);
  EXPECT_EQ(tool_->alerts(), "db1:disk full") << "both lists still stand";
  tool_->acts("setAlertState");  // fails, and drops the alert list all the same
  EXPECT_EQ(tool_->alerts(), "");
}

TEST_F(AlertLifetime, IsNotThatOfAState) {
  ASSERT_EQ(tool_->resultOf("setDatabaseState", {{"databaseName", "db1"}, {"state", "stopping"}}),
            "success");
  clockIsAhead(1000 * kHour);
  tool_->acts("needsRefresh");
  EXPECT_EQ(tool_->states(), "db1:stopping");
}

TEST_F(AlertLifetime, GoesByTheClockOfTheTimestamp) {
  const double before = std::stod(tool_->changeTimestamp());
  clockIsAhead(10 * kHour);
  tool_->acts("needsRefresh");
  const double passed = std::stod(tool_->changeTimestamp()) - before;
  EXPECT_GE(passed, 10.0 * kHour);
  EXPECT_LT(passed, 10.0 * kHour + kMargin);
}

}  // namespace
}  // namespace sorvane::test
