// Change watching, as watchers of the real name server see it.
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <deque>
#include <functional>
#include <regex>

#include "integration/Client.h"
#include "platform/TimeSource.h"

namespace sorvane::test {
namespace {

class Watching : public Served {
 protected:
  void SetUp() override {
    Served::SetUp();
    actor_.emplace(server_);
  }
  /// Somebody else than the watcher.
  [[nodiscard]] Client& actor() { return *actor_; }
  /// The watcher has seen all there was.
  void settle() {
    (void)tool().didPortsChange();
    ASSERT_EQ(tool().didPortsChange(), "NO");
  }
  [[nodiscard]] double timestamp() {
    const std::string text = tool().changeTimestamp();
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
  }
  [[nodiscard]] std::string forcedRefreshes() {
    const auto reply = tool().acts("changeTimestamp");
    return reply && reply->size() == 2 && reply->back().first == "force_refresh"
               ? reply->back().second
               : "(none)";
  }

 private:
  std::optional<Client> actor_;
};

TEST_F(Watching, BeginsWithTheFirstDidPortsChangeWhichAnswersYes) {
  EXPECT_EQ(tool().acts("didPortsChange"), (Texts{{"result", "YES"}}));
  EXPECT_EQ(tool().acts("didPortsChange"), (Texts{{"result", "NO"}}));
  EXPECT_EQ(tool().acts("didPortsChange"), (Texts{{"result", "NO"}}));
}

TEST_F(Watching, BeginsWithWatchPortChangesToo) {
  EXPECT_EQ(tool().acts("watchPortChanges"), kSucceed);
  EXPECT_EQ(tool().didPortsChange(), "YES");
  EXPECT_EQ(tool().didPortsChange(), "NO");
}

TEST_F(Watching, TwiceOnOneConnectionIsToldOnceForEachChange) {
  EXPECT_EQ(tool().acts("watchPortChanges"), kSucceed);
  EXPECT_EQ(tool().acts("watchPortChanges"), kSucceed);
  settle();
  for (int change = 0; change < 3; ++change) {
    actor().acts("needsRefresh");
    EXPECT_EQ(tool().didPortsChange(), "YES");
    EXPECT_EQ(tool().didPortsChange(), "NO");
  }
  EXPECT_EQ(tool().acts("watchPortChanges"), kSucceed);
  EXPECT_EQ(tool().didPortsChange(), "YES") << "registering again sets the flag again";
}

TEST_F(Watching, TellsSeveralChangesOnceAndEachWatcherOfItsOwn) {
  std::deque<Client> watchers;
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(watchers.emplace_back(server_).didPortsChange(), "YES");
  }
  for (const char* name : {"a", "b", "c"}) {
    actor().registers(name);
  }
  for (Client& watcher : watchers) {
    EXPECT_EQ(watcher.didPortsChange(), "YES");
    EXPECT_EQ(watcher.didPortsChange(), "NO");
  }
}

TEST_F(Watching, TellsTheOneWhoMadeTheChangeToo) {
  settle();
  tool().registers("db1");
  EXPECT_EQ(tool().didPortsChange(), "YES");
}

TEST_F(Watching, GoesOnForTheOthersWhenAWatcherCloses) {
  settle();
  {
    std::deque<Client> others;
    for (int i = 0; i < 20; ++i) {
      others.emplace_back(server_).acts("watchPortChanges");
      others.back().acts("watchPortChanges");
    }
    EXPECT_EQ(tool().didPortsChange(), "NO") << "to watch is no change";
  }
  EXPECT_TRUE(waitUntil([&] { return tool().didPortsChange() == "YES"; }));
  actor().acts("needsRefresh");
  EXPECT_EQ(tool().didPortsChange(), "YES");
}

TEST_F(Watching, IsToldOfEveryKindOfChange) {
  Client database(server_);
  database.asksForPort("db1");
  std::optional<Client> closing;
  const auto state = [&](const char* action, const char* name) {
    EXPECT_EQ(actor().acts(action, {{"databaseName", name}, {"state", "s"}}),
              (Texts{{"result", "success"}}));
  };
  const auto refresh = [&](const Texts& force) {
    EXPECT_EQ(actor().acts("needsRefresh", force), (Texts{{"result", "success"}}));
  };
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"acceptPort", [&] { EXPECT_TRUE(database.accepts()); }},
      {"acceptPort of what is there", [&] { EXPECT_TRUE(database.accepts()); }},
      {"reconnectPort", [&] { EXPECT_TRUE(database.reconnects("db2")); }},
      {"a state", [&] { state("setDatabaseState", "db2"); }},
      {"a state of an unknown name", [&] { state("setDatabaseState", "nobody"); }},
      {"an alert", [&] { state("setAlertState", "db2"); }},
      {"an alert of an unknown name", [&] { state("setAlertState", "nobody"); }},
      {"a refresh", [&] { refresh({}); }},
      {"a refresh not forced",
       [&] {
         refresh({{"force", "NO"}});
       }},
      {"a forced refresh",
       [&] {
         refresh({{"force", "YES"}});
       }},
      {"the end of a database", [&] { database.closes(); }},
      {"the end of a connection that registered nothing", [&] { closing->closes(); }},
  };
  closing.emplace(server_);
  closing->acts("hostList");
  for (const auto& [name, change] : changes) {
    settle();
    const double before = timestamp();
    change();
    EXPECT_TRUE(waitUntil([&] { return tool().didPortsChange() == "YES"; })) << name;
    EXPECT_EQ(tool().didPortsChange(), "NO") << name;
    EXPECT_GT(timestamp(), before) << name;
  }
}

TEST_F(Watching, IsNotToldOfWhatChangesNothing) {
  Client other(server_);
  actor().registers("db1");
  const std::pair<const char*, Texts> requests[] = {
      {"ping", {{"ping", ""}}},
      {"newPort", {{"newPort", ""}, {"portName", "db2"}, {"portHost", "h"}, {"portType", "t"}}},
      {"findPort", {{"findPort", "db1"}, {"portHost", "h"}}},
      {"reconnectPort that raises", {{"reconnectPort", "db2"}}},
      {"databaseStates", {{"action", "databaseStates"}}},
      {"a state without a text", {{"action", "setDatabaseState"}, {"databaseName", "db1"}}},
      {"a state without a name", {{"action", "setDatabaseState"}, {"state", "s"}}},
      {"an alert without a text", {{"action", "setAlertState"}, {"databaseName", "db1"}}},
      {"an alert without a name", {{"action", "setAlertState"}, {"state", "s"}}},
      {"watchPortChanges", {{"action", "watchPortChanges"}}},
      {"didPortsChange", {{"action", "didPortsChange"}}},
      {"changeTimestamp", {{"action", "changeTimestamp"}}},
      {"hostInfo", {{"action", "hostInfo"}}},
      {"hostList", {{"action", "hostList"}}},
      {"a launcher",
       {{"action", "sorvexecConnectHost"},
        {"hostName", "h"},
        {"portHostAddress", "a"},
        {"ethernetAddress", "02:00:00:00:00:01"}}},
      {"preferences", {{"action", "set_userpreferences"}, {"key", "k"}, {"databases", "d"}}},
      {"no command", {{"action", "nothing"}}},
  };
  for (const auto& [name, request] : requests) {
    settle();
    const std::string before = tool().changeTimestamp();
    EXPECT_TRUE(other.connection().ask(textsMessage(request))) << name;
    EXPECT_EQ(tool().didPortsChange(), "NO") << name;
    EXPECT_EQ(tool().changeTimestamp(), before) << name;
  }
}

TEST_F(Watching, ByTimestampBeginsWithTheStartOfTheServer) {
  const auto reply = tool().acts("changeTimestamp");
  ASSERT_EQ(reply->size(), 1U) << "nothing was forced yet";
  EXPECT_EQ(reply->front().first, "result");
  EXPECT_TRUE(std::regex_match(reply->front().second, std::regex("[0-9]+\\.[0-9]{6}")))
      << reply->front().second;
  EXPECT_LT(std::abs(timeIntervalSinceReferenceDate() - timestamp()), 60.0);
}

TEST_F(Watching, ByTimestampTellsTheTimeOfTheLastChange) {
  constexpr double kLastDigit = 0.000001;
  const double before = timeIntervalSinceReferenceDate();
  actor().acts("needsRefresh");
  const double after = timeIntervalSinceReferenceDate();
  EXPECT_GE(timestamp(), before - kLastDigit);
  EXPECT_LE(timestamp(), after + kLastDigit);
}

TEST_F(Watching, ByTimestampTellsHowOftenARefreshWasForced) {
  actor().acts("needsRefresh");
  actor().acts("needsRefresh", {{"force", "no"}});
  actor().acts("needsRefresh", {{"force", ""}});
  actor().acts("needsRefresh", {{"force", "yes "}});
  EXPECT_EQ(forcedRefreshes(), "(none)");
  actor().acts("needsRefresh", {{"force", "yes"}});
  const auto reply = tool().connection().ask(request("changeTimestamp", {}));
  EXPECT_EQ(reply->body, textsBody({{"result", tool().changeTimestamp()}, {"force_refresh", "1"}}));
  actor().acts("needsRefresh", {{"force", "YeS"}});
  EXPECT_EQ(forcedRefreshes(), "2");
}

TEST_F(Watching, CountsForcedRefreshesToTenThousandAndBeginsAgainAtOne) {
  const auto force = [this](int times) {
    const std::string one = frame(request("needsRefresh", {{"force", "YES"}}));
    std::string all;
    for (int i = 0; i < times; ++i) {
      all += one;
    }
    ASSERT_TRUE(actor().connection().send(all));
    const std::string reply = frameOfBody(textsBody({{"result", "success"}}));
    const std::string replies = actor().connection().receive(reply.size() * times);
    EXPECT_EQ(replies.substr(replies.size() - reply.size()), reply);
  };
  for (int step = 0; step < 20; ++step) {
    force(500);
  }
  EXPECT_EQ(forcedRefreshes(), "10000");
  force(1);
  EXPECT_EQ(forcedRefreshes(), "1") << "never 0 again";
}

}  // namespace
}  // namespace sorvane::test
