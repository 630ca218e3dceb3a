// The states and alerts of databases, as a monitoring tool of the real name server gets them.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <sstream>

#include "integration/Client.h"

namespace sorvane::test {
namespace {

std::vector<std::string> entriesOf(const std::string& list) {
  std::vector<std::string> entries;
  std::istringstream stream(list);
  for (std::string each; std::getline(stream, each, '|');) {
    entries.push_back(each);
  }
  return entries;
}

std::vector<std::string> sortedEntriesOf(const std::string& list) {
  auto entries = entriesOf(list);
  std::sort(entries.begin(), entries.end());
  return entries;
}

class StatesAndAlerts : public Served {
 protected:
  std::string sets(const char* action, const std::string& name, const std::string& text) {
    return tool().resultOf(action, {{"databaseName", name}, {"state", text}});
  }
  void setsState(const std::string& name, const std::string& state) {
    EXPECT_EQ(sets("setDatabaseState", name, state), "success");
  }
  void setsAlert(const std::string& name, const std::string& alert) {
    EXPECT_EQ(sets("setAlertState", name, alert), "success");
  }
};

TEST_F(StatesAndAlerts, OfNoDatabasesAreTwoEmptyTexts) {
  const std::string nothing(1, '\0');
  EXPECT_EQ(tool().connection().ask(request("databaseStates", {}))->body,
            entry("result", nothing) + entry("alerts", nothing));
}

TEST_F(StatesAndAlerts, AreListedByNameAndRunningWhereNoneWasReported) {
  Client db1(server_);
  Client db2(server_);
  db1.registers("db1");
  db2.registers("db2");
  setsState("db2", "stopping");
  setsAlert("db2", "disk full");
  const auto reply = tool().acts("databaseStates");
  ASSERT_EQ(reply->size(), 2U);
  EXPECT_EQ((*reply)[0].first, "result");
  EXPECT_EQ(sortedEntriesOf((*reply)[0].second), sortedEntriesOf("db1:running|db2:stopping"));
  EXPECT_EQ((*reply)[1], std::pair(std::string("alerts"), std::string("db2:disk full")));
  db2.closes();
  EXPECT_TRUE(waitUntil([&] { return tool().states() == "db1:running"; }));
  EXPECT_EQ(tool().alerts(), "");
}

TEST_F(StatesAndAlerts, LeaveOutTheLauncherAndTheServersOwnTwoNames) {
  Client launcher(server_);
  Client database(server_);
  launcher.registers("sorvexec");
  database.registers("SorvExec");
  for (const char* name : {"sorvexec", "VN_nameserver", "VN_infoserver", "SorvExec"}) {
    setsState(name, "state");
    setsAlert(name, "alert");
  }
  EXPECT_EQ(tool().states(), "SorvExec:state") << "compared exactly";
  EXPECT_EQ(tool().alerts(), "SorvExec:alert");
}

TEST_F(StatesAndAlerts, ShareOneOrderHoweverManyThereAre) {
  std::deque<Client> databases;
  std::vector<std::string> expected;
  for (int i = 0; i < 600; ++i) {
    const std::string name = "database number " + std::to_string(i);
    databases.emplace_back(server_).registers(name);
    setsAlert(name, "a");
    setsState(name, "a");
    expected.push_back(name + ":a");
  }
  const auto reply = tool().acts("databaseStates");
  EXPECT_EQ(reply->front().second, reply->back().second);
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(sortedEntriesOf(reply->front().second), expected);
}

TEST_F(StatesAndAlerts, GoBackAsTheyCame) {
  Client database(server_);
  database.registers("a|b:c\r\n");
  for (const std::string text :
       {"x|y:z", "two\nlines\r\n", "gr\xC3\xBC\xC3\x9F", "", ":|", "\x01\x7F\t"}) {
    setsState("a|b:c\r\n", text);
    EXPECT_EQ(tool().states(), "a|b:c\r\n:" + text);
    if (!text.empty()) {
      setsAlert("a|b:c\r\n", text);
      EXPECT_EQ(tool().alerts(), "a|b:c\r\n:" + text);
    }
  }
  const std::string longText(100000, 's');
  setsState("a|b:c\r\n", longText);
  EXPECT_EQ(tool().states(), "a|b:c\r\n:" + longText);
}

TEST_F(StatesAndAlerts, OfAnUnknownNameSucceedAndAreNotKept) {
  setsState("db1", "stopping");
  setsAlert("db1", "disk full");
  Client database(server_);
  database.registers("db1");
  setsState("DB1", "stopping");
  setsAlert("DB1", "disk full");
  EXPECT_EQ(tool().states(), "db1:running");
  EXPECT_EQ(tool().alerts(), "");
}

TEST_F(StatesAndAlerts, BelongToTheConnectionThatHoldsTheName) {
  Client first(server_);
  Client second(server_);
  first.registers("db1");
  setsState("db1", "old");
  setsAlert("db1", "old");
  second.registers("db1");
  EXPECT_EQ(tool().states(), "db1:running");
  EXPECT_EQ(tool().alerts(), "");
  setsState("db1", "new");
  ASSERT_TRUE(first.accepts());
  EXPECT_EQ(tool().states(), "db1:old");
  EXPECT_EQ(tool().alerts(), "db1:old");
}

TEST_F(StatesAndAlerts, StayWithADatabaseThatChangesItsName) {
  Client database(server_);
  database.registers("db1");
  setsState("db1", "s");
  setsAlert("db1", "a");
  ASSERT_TRUE(database.reconnects("db2"));
  EXPECT_EQ(tool().states(), "db2:s|db2:s") << "one record under two names, by its present one";
  EXPECT_EQ(tool().alerts(), "db2:a|db2:a");
  setsState("db1", "changed by its old name");
  EXPECT_EQ(entriesOf(tool().states())[0], "db2:changed by its old name");
}

TEST_F(StatesAndAlerts, WithoutAKeyFail) {
  Client database(server_);
  database.registers("db1");
  for (const char* action : {"setDatabaseState", "setAlertState"}) {
    for (const Texts& incomplete : {Texts{}, Texts{{"databaseName", "db1"}}, Texts{{"state", "s"}},
                                    Texts{{"databaseName", "db1"}, {"State", "s"}}}) {
      EXPECT_EQ(tool().acts(action, incomplete), (Texts{{"result", "failed"}}));
    }
  }
  EXPECT_EQ(tool().states(), "db1:running");
  EXPECT_EQ(tool().alerts(), "");
}

/// Which requests make the server build its lists anew. A "newPort" takes a name out of the
/// registry without dropping a list, so that a list which stands still shows it.
class KeptLists : public StatesAndAlerts {
 protected:
  void showsAName() {
    endsTheLast();
    leaving_.emplace(server_);
    leaving_->registers("leaving");
    ASSERT_EQ(tool().states(), "leaving:running");
    leaving_->asksForPort("nobody");
    ASSERT_EQ(tool().states(), "leaving:running") << "the list stands";
  }

  std::optional<Client> leaving_;

 private:
  /// The end of a connection drops the list, too, so it is waited for.
  void endsTheLast() {
    if (leaving_ && leaving_->connection().isConnected()) {
      (void)tool().didPortsChange();
      leaving_->closes();
      ASSERT_TRUE(waitUntil([this] { return tool().didPortsChange() == "YES"; }));
    }
  }
};

TEST_F(KeptLists, AreBuiltAnewAfterAStateOrAnAlertEvenOneThatFailed) {
  for (const Texts& keys : {Texts{}, Texts{{"databaseName", "x"}}, Texts{{"state", "x"}},
                            Texts{{"databaseName", "x"}, {"state", "x"}}}) {
    for (const char* action : {"setDatabaseState", "setAlertState"}) {
      showsAName();
      tool().acts(action, keys);
      EXPECT_EQ(tool().states(), "") << action << " with " << keys.size();
    }
  }
}

TEST_F(KeptLists, AreBuiltAnewAfterEveryMarking) {
  showsAName();
  tool().acts("needsRefresh");
  EXPECT_EQ(tool().states(), "");
  showsAName();
  leaving_->closes();
  EXPECT_TRUE(waitUntil([&] { return tool().states().empty(); }));
  showsAName();
  Client(server_).registers("db1");
  EXPECT_TRUE(waitUntil([&] { return tool().states().empty(); }));
}

TEST_F(KeptLists, StandWhateverElseIsAsked) {
  showsAName();
  Client other(server_);
  const Texts refused = {{"action", "setDatabaseState"}, {"databaseName", "x"}};
  Message notText = textsMessage(refused);
  notText.setData("state", "\xFF");
  EXPECT_EQ(other.asks(notText), kNil) << "what raises changes nothing";
  for (const char* action : {"watchPortChanges", "didPortsChange", "changeTimestamp",
                             "databaseStates", "hostInfo", "hostList", "sorvexecConnectHost"}) {
    (void)other.acts(action);
  }
  other.asksForPort("db1");
  EXPECT_FALSE(other.knows("leaving"));
  EXPECT_EQ(tool().states(), "leaving:running");
}

}  // namespace
}  // namespace sorvane::test
