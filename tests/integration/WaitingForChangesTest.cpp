// Watchers of the real name server that wait for a change instead of asking again and again.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "integration/Client.h"
#include "integration/DaemonProcess.h"
#include "integration/HeldServerLock.h"
#include "support/TestedBuild.h"

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

const std::string kYes = frame(Message({{"result", "YES"}}));
const std::string kNo = frame(Message({{"result", "NO"}}));
const std::string kPing = frame(Message({{"ping", ""}}));
const std::string kPong = frameOfBody("");
/// Long before the time of a request is over that is held as long as it may be.
constexpr seconds kSoon{5};

std::string await(const std::string& timeout = "300") {
  return frame(request("awaitPortChanges", {{"timeout", timeout}}));
}

class WaitingForChanges : public Served {
 protected:
  void SetUp() override {
    server_.setting("Threads", "3");
    Served::SetUp();
  }

  /// A watcher that knows of all that has changed.
  [[nodiscard]] Client watcher() {
    Client made(server_);
    EXPECT_EQ(made.resultOf("awaitPortChanges"), "YES") << "the first time";
    return made;
  }
  /// A watcher whose request is held, once a request behind it was not answered.
  [[nodiscard]] Client waits(const std::string& behind = "") {
    Client made = watcher();
    EXPECT_TRUE(made.connection().send(await() + behind));
    EXPECT_TRUE(made.connection().staysSilent(milliseconds(20)));
    return made;
  }
  void changes() { tool().acts("needsRefresh"); }
};

TEST_F(WaitingForChanges, AreToldOfEveryKindOfChangeAtOnce) {
  Client database(server_);
  database.asksForPort("db1");
  std::optional<Client> closing(server_);
  const auto tells = [&](const char* action, const char* name) {
    tool().acts(action, {{"databaseName", name}, {"state", "s"}});
  };
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"acceptPort", [&] { EXPECT_TRUE(database.accepts()); }},
      {"reconnectPort", [&] { EXPECT_TRUE(database.reconnects("db2")); }},
      {"a state", [&] { tells("setDatabaseState", "db2"); }},
      {"an alert", [&] { tells("setAlertState", "db2"); }},
      {"a refresh", [&] { tool().acts("needsRefresh"); }},
      {"a forced refresh",
       [&] {
         tool().acts("needsRefresh", {{"force", "YES"}});
       }},
      {"a long registration", [&] { EXPECT_TRUE(database.reconnects(std::string(100000, 'n'))); }},
      {"the end of a database", [&] { database.closes(); }},
      {"the end of a connection that registered nothing", [&] { closing->closes(); }},
  };
  ASSERT_TRUE(closing->connection().send(kPing));
  ASSERT_EQ(closing->connection().receive(kPong.size()), kPong);
  Client watcher = this->watcher();
  for (const auto& [name, change] : changes) {
    ASSERT_TRUE(watcher.connection().send(await()));
    EXPECT_TRUE(watcher.connection().staysSilent(milliseconds(10))) << name;
    const auto begin = Clock::now();
    change();
    EXPECT_EQ(watcher.connection().receive(kYes.size()), kYes) << name;
    EXPECT_LT(Clock::now() - begin, kSoon) << name;
    EXPECT_EQ(watcher.didPortsChange(), "NO") << name << " was told";
  }
}

TEST_F(WaitingForChanges, AreNotToldOfWhatChangesNothing) {
  Client watcher = waits();
  Client other(server_);
  for (const char* const action : {"watchPortChanges", "didPortsChange", "databaseStates",
                                   "changeTimestamp", "hostInfo", "hostList"}) {
    other.acts(action);
  }
  other.asksForPort("db1");
  (void)other.finds("db1");
  EXPECT_TRUE(watcher.connection().staysSilent(milliseconds(50)));
}

TEST_F(WaitingForChanges, GetNoWhenTheirTimeIsOver) {
  Client patient = waits();
  Client watcher = this->watcher();
  const auto begin = Clock::now();
  ASSERT_TRUE(watcher.connection().send(await("1")));
  EXPECT_EQ(watcher.connection().receive(kNo.size()), kNo);
  EXPECT_GE(Clock::now() - begin, seconds(1));
  EXPECT_LT(Clock::now() - begin, kSoon);
  ASSERT_TRUE(watcher.connection().send(await("0") + await("00")));
  EXPECT_EQ(watcher.connection().receive(2 * kNo.size()), kNo + kNo);
  changes();
  EXPECT_EQ(watcher.resultOf("awaitPortChanges", {{"timeout", "0"}}), "YES");
  EXPECT_EQ(patient.connection().receive(kYes.size()), kYes);
}

TEST_F(WaitingForChanges, KeepTheirLaterRequestsInOrder) {
  Client watcher = waits(kPing + await());
  ASSERT_TRUE(watcher.connection().send(kPing));
  EXPECT_TRUE(watcher.connection().staysSilent(milliseconds(20)));
  changes();
  EXPECT_EQ(watcher.connection().receive(kYes.size() + kPong.size()), kYes + kPong);
  EXPECT_TRUE(watcher.connection().staysSilent(milliseconds(20))) << "the second one is held";
  changes();
  EXPECT_EQ(watcher.connection().receive(kYes.size() + kPong.size()), kYes + kPong);
}

TEST_F(WaitingForChanges, AreAnsweredAtOnceWhenTheySendNothingMoreAndThenClosed) {
  for (const std::string& behind : {std::string(), kPing}) {
    Client watcher = waits(behind);
    watcher.connection().shutdownWriting();
    const std::string due = kNo + (behind.empty() ? "" : kPong);
    EXPECT_EQ(watcher.connection().receive(due.size()), due);
    EXPECT_TRUE(watcher.connection().isClosedByPeer(kSoon));
  }
}

TEST_F(WaitingForChanges, AreForgottenAtOnceWhenTheyGoWhateverTheyHaveSent) {
  std::string many;  // more than is read at once
  while (many.size() < 200000) {
    many += kPing;
  }
  for (const std::string& behind : {std::string(), kPing, kPing.substr(0, 5), many}) {
    for (const bool isReset : {false, true}) {
      Client watcher = this->watcher();
      ASSERT_TRUE(watcher.reconnects("db1"));
      ASSERT_EQ(watcher.didPortsChange(), "YES");
      ASSERT_TRUE(watcher.connection().send(await()));
      EXPECT_TRUE(watcher.connection().staysSilent(milliseconds(5)));
      ASSERT_TRUE(watcher.connection().send(behind));
      EXPECT_TRUE(tool().knows("db1"));
      const linger reset{1, 0};
      if (isReset) {
        setsockopt(watcher.connection().descriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
      }
      watcher.closes();
      EXPECT_TRUE(waitUntil([&] { return !tool().knows("db1"); }, kSoon)) << behind.size();
    }
  }
}

TEST_F(WaitingForChanges, AreAnsweredAtOnceBeforeABadFrameBehindEndsTheConnection) {
  Client watcher = this->watcher();
  ASSERT_TRUE(watcher.connection().send(await() + kPing + "garbage that is no frame"));
  const std::string due = kNo + kPong;
  EXPECT_EQ(watcher.connection().receive(due.size()), due);
  EXPECT_TRUE(watcher.connection().isClosedByPeer(kSoon));
  EXPECT_TRUE(server_.complains("connection closed, wrong mark"));
}

TEST_F(WaitingForChanges, CostNoProcessorTimeWhateverLiesBehindTheirRequests) {
  std::deque<Client> watchers;
  for (int i = 0; i < 50; ++i) {
    watchers.push_back(waits(kPing));
    ASSERT_TRUE(watchers.back().connection().send(kPing));
  }
  const DaemonProcess process(server_.process());
  const double before = process.seconds();
  EXPECT_TRUE(watchers.front().connection().staysSilent(milliseconds(300)));
  EXPECT_LT(process.seconds() - before, 0.1);
}

TEST_F(WaitingForChanges, EndWithoutAReplyWhenTheServerEnds) {
  Client watcher = waits();
  Client(server_).connection().send(frame(Message({{"terminate", ""}})));
  EXPECT_TRUE(watcher.connection().isClosedByPeer(kSoon));
}

// One change in a round: a watcher that misses it waits in vain. The change comes before some of
// the requests and after others, on all serving threads.
TEST_F(WaitingForChanges, MissNone) {
  constexpr int kRounds = 200;
  constexpr std::size_t kWatchers = 20;
  std::deque<Client> watchers;
  for (std::size_t i = 0; i < kWatchers; ++i) {
    watchers.push_back(watcher());
  }
  Client database(server_);
  std::optional<Client> closing;
  std::mt19937 random(1);
  for (int round = 0; round < kRounds; ++round) {
    closing.emplace(server_);
    ASSERT_TRUE(closing->asks(Message({{"ping", ""}})));
    const std::size_t before = random() % (kWatchers + 1);
    const auto kind = random() % 4;
    for (std::size_t i = 0; i <= kWatchers; ++i) {
      if (i == before && kind == 0) {
        closing->closes();
      } else if (i == before && kind == 1) {
        database.connection().send(frame(Client::reconnection("db1", "7000")));
      } else if (i == before && kind == 2) {  // by a waiting thread
        database.connection().send(frame(Client::reconnection(std::string(20000, 'n'), "7000")));
      } else if (i == before) {
        database.connection().send(frame(request("needsRefresh", {})));
      }
      if (i < kWatchers) {
        ASSERT_TRUE(watchers[i].connection().send(await()));
      }
    }
    for (Client& each : watchers) {
      ASSERT_EQ(each.connection().receive(kYes.size()), kYes) << round << ", kind " << kind;
    }
    if (kind != 0) {
      ASSERT_TRUE(database.connection().receiveFrame());
      closing->closes();  // a change, too, which may come at any time in the next round
      for (Client& each : watchers) {
        ASSERT_TRUE(each.connection().send(await()));
        ASSERT_EQ(each.connection().receive(kYes.size()), kYes) << round;
      }
    }
  }
}

/// So many connections as this process may have, less those for anything else; at most `most`.
std::size_t possibleConnections(std::size_t most) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  return std::min<std::size_t>(most, static_cast<std::size_t>(limit.rlim_cur) - 200);
}

TEST_F(WaitingForChanges, TakeLittleMemoryHoweverManyTheyAreAndDelayNobodyWhenTheyAreTold) {
  constexpr long kMostBytes = 300;  // of each, beyond an idle connection
  const std::size_t number = possibleConnections(10000);
  std::deque<Client> watchers;
  for (std::size_t i = 0; i < number; ++i) {
    watchers.emplace_back(server_);
    ASSERT_TRUE(watchers.back().connection().isConnected());
    ASSERT_TRUE(watchers.back().connection().send(await()));
  }
  for (Client& each : watchers) {
    ASSERT_EQ(each.connection().receive(kYes.size()), kYes);
  }
  const DaemonProcess process(server_.process());
  const long idle = process.residentKibibytes();
  for (Client& each : watchers) {
    ASSERT_TRUE(each.connection().send(await()));
  }
  ASSERT_EQ(tool().didPortsChange(), "YES");
  EXPECT_TRUE(watchers.back().connection().staysSilent(milliseconds(20)));
  if (areTestedWithoutSanitizers()) {
    const long bytes = (process.residentKibibytes() - idle) * 1024;
    EXPECT_LT(bytes, kMostBytes * static_cast<long>(number));
  }
  const auto begin = Clock::now();
  changes();
  const auto replied = Clock::now();
  ASSERT_TRUE(tool().asks(Message({{"ping", ""}})));
  const auto pinged = Clock::now();
  for (Client& each : watchers) {
    ASSERT_EQ(each.connection().receive(kYes.size()), kYes);
  }
  RecordProperty("replyMicroseconds", std::to_string((replied - begin).count() / 1000));
  RecordProperty("pingMicroseconds", std::to_string((pinged - replied).count() / 1000));
  RecordProperty("allMicroseconds", std::to_string((Clock::now() - begin).count() / 1000));
  EXPECT_LT(pinged - begin, seconds(1));
}

TEST(WaitingForChangesWhileACommandHolds, TheServerLockAreAnsweredWhenTheirTimeIsOver) {
  Daemon server;
  HeldServerLock lock(server);
  Client watcher(server);
  EXPECT_EQ(watcher.resultOf("awaitPortChanges"), "YES");
  ASSERT_TRUE(watcher.connection().send(await("1")));
  ASSERT_TRUE(watcher.connection().staysSilent(milliseconds(20)));
  lock.hold();
  EXPECT_EQ(watcher.connection().receive(kNo.size()), kNo);
  lock.release();
}

}  // namespace
}  // namespace sorvane::test
