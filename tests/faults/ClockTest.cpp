// A system clock that jumps both ways under a running name server.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "integration/Client.h"
#include "integration/ShiftedClock.h"

namespace sorvane::test {
namespace {

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kTenYears = 10 * 365 * 24 * kHour;

/// Each of them is counted from the true time: the clock goes forth and back again and again.
constexpr std::int64_t kJumps[] = {kTenYears, -kTenYears, 1, -1, 3 * kHour, -3 * kHour, 0};

class ClockThatJumps : public ::testing::Test {
 protected:
  void SetUp() override {
    clock_.launch(server_);
    ASSERT_TRUE(server_.answers());
    database_.emplace(server_);
    database_->registers("db1");
    tool_.emplace(server_);
    tool_->resultOf("watchPortChanges");
  }

  void sets(const char* action, const std::string& text) {
    ASSERT_EQ(tool_->resultOf(action, {{"databaseName", "db1"}, {"state", text}}), "success");
  }

  const ShiftedClock clock_;
  Daemon server_;
  std::optional<Client> database_;
  std::optional<Client> tool_;
};

TEST_F(ClockThatJumps, CostsNobodyTheConnectionNorARegistration) {
  RawConnection unfinished = server_.rawConnection();
  const std::string asking = frame(Message({{"ping", ""}}));
  ASSERT_TRUE(unfinished.send(asking.substr(0, 5)));
  for (const std::int64_t jump : kJumps) {
    clock_.setAhead(jump);
    EXPECT_TRUE(tool_->knows("db1"));
    EXPECT_TRUE(database_->knows("db1"));
    EXPECT_TRUE(server_.registers("db2"));
    server_.unregisters("db2");
  }
  ASSERT_TRUE(unfinished.send(asking.substr(5)));
  EXPECT_TRUE(unfinished.receiveFrame()) << "the time that a frame may take is no time of day";
}

TEST_F(ClockThatJumps, HidesNoChangeFromAWatcherNorFromWhoComparesTimestamps) {
  std::string before = tool_->changeTimestamp();
  for (const std::int64_t jump : kJumps) {
    clock_.setAhead(jump);
    EXPECT_EQ(tool_->changeTimestamp(), before) << "no change has come";
    sets("setDatabaseState", "at " + std::to_string(jump));
    EXPECT_EQ(tool_->didPortsChange(), "YES");
    EXPECT_EQ(tool_->didPortsChange(), "NO");
    EXPECT_EQ(tool_->states(), "db1:at " + std::to_string(jump));
    const std::string now = tool_->changeTimestamp();
    EXPECT_NE(now, before);
    before = now;
  }
}

TEST_F(ClockThatJumps, ShowsAnAlertThatIsSetAfterwardsForItsHour) {
  for (const std::int64_t jump : kJumps) {
    clock_.setAhead(jump);
    const std::string alert = "set at " + std::to_string(jump);
    sets("setAlertState", alert);
    EXPECT_EQ(tool_->alerts(), "db1:" + alert);
    clock_.setAhead(jump + 2 * kHour);
    tool_->acts("needsRefresh");  // both lists are built anew
    EXPECT_EQ(tool_->alerts(), "");
  }
}

}  // namespace
}  // namespace sorvane::test
