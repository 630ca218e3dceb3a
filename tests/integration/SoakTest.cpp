// Everything at once: databases come, report and go while watchers look on, and at the end every
// count adds up.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "integration/Client.h"

namespace sorvane::test {
namespace {

constexpr int kDatabaseThreads = 6;
constexpr int kRoundsOfEach = 1200;
constexpr int kStayingOfEach = 5;  // the databases of the last rounds stay
constexpr int kReporters = 2;
constexpr int kWatchers = 4;
constexpr int kVisitors = 2;
constexpr const char* kLastState = "the last change";

std::string nameOf(int thread, int round) {
  return "db" + std::to_string(thread) + "." + std::to_string(round);
}

class Soak : public Served {
 protected:
  /// Registers databases one after the other, each under a name of its own; most of them close.
  void servesDatabases(int thread) {
    for (int round = 0; round < kRoundsOfEach; ++round) {
      Client database(server_);
      const std::string name = nameOf(thread, round);
      const std::string number = database.registers(name);
      EXPECT_EQ(database.numberOf(name), number);
      EXPECT_EQ(database.resultOf("setDatabaseState", {{"databaseName", name}, {"state", name}}),
                "success");
      const std::lock_guard<std::mutex> hold(lock_);
      numbers_.push_back(std::stoi(number));
      if (round >= kRoundsOfEach - kStayingOfEach) {
        expected_[name] = number;
        staying_.push_back(std::move(database));
      }
    }
  }

  /// Sets states and alerts of databases that come and go, on one connection.
  void reports(int reporter) {
    Client tool(server_);
    for (int step = 0; !registrationsAreOver_; ++step) {
      const std::string name = nameOf(step % kDatabaseThreads, step % kRoundsOfEach);
      EXPECT_EQ(tool.resultOf("setAlertState",
                              {{"databaseName", name}, {"state", std::to_string(reporter)}}),
                "success");
      EXPECT_EQ(tool.resultOf("needsRefresh", {{"force", "yes"}}), "success");
      ++forced_;
    }
  }

  /// Comes, watches, looks something up and goes, again and again.
  void visits() {
    while (!registrationsAreOver_) {
      Client visitor(server_);
      EXPECT_EQ(visitor.didPortsChange(), "YES");
      EXPECT_EQ(visitor.resultOf("watchPortChanges"), "succeed");
      EXPECT_EQ(visitor.asks(Message({{"ping", ""}})), kEmptyDictionary);
      EXPECT_EQ(visitor.resultOf("hostList"), "");
    }
  }

  /// Polls, and fetches the states whenever something changed, until it sees the last change.
  void watches(std::string& seenAtLast) {
    Client watcher(server_);
    EXPECT_TRUE(waitUntil([&] {
      EXPECT_NE(watcher.changeTimestamp(), "(none)");
      if (watcher.didPortsChange() != "YES") {
        return false;
      }
      seenAtLast = watcher.states();
      return seenAtLast.find(kLastState) != std::string::npos;
    })) << "the last change was not seen";
  }

  [[nodiscard]] std::vector<std::string> listedNames(const std::string& states) const {
    std::vector<std::string> names;
    for (std::size_t at = 0; at < states.size();) {
      const std::size_t end = std::min(states.find('|', at), states.size());
      names.push_back(states.substr(at, states.find(':', at) - at));
      at = end + 1;
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  std::atomic<bool> registrationsAreOver_ = false;
  std::atomic<int> forced_ = 0;
  std::mutex lock_;  // guards what follows
  std::vector<int> numbers_;
  std::map<std::string, std::string> expected_;  // name and number of the databases that stay
  std::vector<Client> staying_;
};

TEST_F(Soak, OfComingReportingWatchingAndGoingAddsUp) {
  std::vector<std::string> seenAtLast(kWatchers);
  std::vector<std::thread> watchers;
  for (std::string& seen : seenAtLast) {
    watchers.emplace_back([&] { watches(seen); });
  }
  std::vector<std::thread> others;
  for (int reporter = 0; reporter < kReporters; ++reporter) {
    others.emplace_back([this, reporter] { reports(reporter); });
  }
  for (int visitor = 0; visitor < kVisitors; ++visitor) {
    others.emplace_back([this] { visits(); });
  }
  std::vector<std::thread> databases;
  for (int thread = 0; thread < kDatabaseThreads; ++thread) {
    databases.emplace_back([this, thread] { servesDatabases(thread); });
  }
  for (std::thread& each : databases) {
    each.join();
  }
  registrationsAreOver_ = true;
  for (std::thread& each : others) {
    each.join();
  }

  std::vector<std::string> names;
  for (const auto& [name, number] : expected_) {
    names.push_back(name);
  }
  EXPECT_TRUE(waitUntil([&] {
    tool().acts("needsRefresh");
    return listedNames(tool().states()) == names;
  })) << tool().states();
  for (const auto& [name, number] : expected_) {
    EXPECT_EQ(tool().numberOf(name), number);
  }
  std::sort(numbers_.begin(), numbers_.end());
  ASSERT_EQ(numbers_.size(), static_cast<std::size_t>(kDatabaseThreads * kRoundsOfEach));
  for (std::size_t i = 0; i < numbers_.size(); ++i) {
    ASSERT_EQ(numbers_[i], server_.basePort() + 1 + static_cast<int>(i)) << "every number once";
  }
  const auto stamp = tool().acts("changeTimestamp");
  ASSERT_EQ(stamp->size(), 2U);
  EXPECT_EQ(stamp->back().second, std::to_string((forced_ - 1) % 10000 + 1));

  tool().resultOf("setDatabaseState", {{"databaseName", names.front()}, {"state", kLastState}});
  for (std::thread& each : watchers) {
    each.join();
  }
  const std::string atLast = tool().states();
  EXPECT_EQ(listedNames(atLast), names);
  for (const std::string& seen : seenAtLast) {
    EXPECT_EQ(seen, atLast);
  }
}

}  // namespace
}  // namespace sorvane::test
