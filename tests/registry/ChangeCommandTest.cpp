// What has changed, asked by clients, and names that are forgotten.
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "registry/CommandServer.h"

namespace sorvane::test {
namespace {

using Values = std::map<std::string, std::string>;

/// One that asks what has changed, and keeps what it knows.
class Asker {
 public:
  explicit Asker(NetConnectionDelegate& server) : peer_(server) {}

  /// Asks for one page. Returns the names that it tells, those that are gone with a minus.
  std::vector<std::string> asks(const std::string& limit = "") {
    Message request({{"action", "portChanges"}});
    if (!sequence.empty()) {
      request.setText("instance", instance).setText("since", sequence);
    }
    if (!limit.empty()) {
      request.setText("limit", limit);
    }
    const auto reply = peer_.sends(request);
    if (!reply) {
      ADD_FAILURE() << "no reply";
      return {};
    }
    bytes = reply->body().size();
    instance = *reply->text("instance");
    sequence = *reply->text("sequence");
    hasMore = reply->text("more") == "YES";
    if (reply->text("restart") == "YES") {
      ++restarts;
      known.clear();
    }
    std::vector<std::string> told;
    for (std::size_t index = 4; index < reply->entries().size(); ++index) {
      const MessageEntry& entry = reply->entries()[index];
      EXPECT_EQ(entry.key, std::to_string(index - 4));
      Message row;
      EXPECT_EQ(row.readBody(entry.value), nullptr);
      rowKeys = keysOf(row.owned());
      Values values;
      for (const MessageEntry& value : row.entries()) {
        values[std::string(value.key)] = *row.text(value.key);
      }
      const std::string name = values["name"];
      if (values.contains("gone")) {
        known.erase(name);
      } else {
        known[name] = values;
      }
      told.push_back((values.contains("gone") ? "-" : "") + name);
    }
    return told;
  }
  /// Asks until there is no more. Returns how many pages that took.
  int asksForAll(const std::string& limit = "") {
    int pages = 0;
    do {
      (void)asks(limit);
      ++pages;
    } while (hasMore && pages < 10000);
    return pages;
  }

  std::map<std::string, Values> known;
  std::string instance;
  std::string sequence;
  std::string rowKeys;  ///< of the last row
  std::size_t bytes = 0;
  bool hasMore = false;
  int restarts = 0;

 private:
  Peer peer_;
};

using Told = std::vector<std::string>;

class PortChanges : public CommandTest {
 protected:
  PortChanges() : asker_(server_) { asker_.asks(); }

  void ends(Peer& peer) { server_.registry.endPort(peer.record()); }
  /// Registers that many names, each with a connection of its own, which lives as long as the test.
  void registerMany(int count, const std::string& before = "name") {
    for (int number = 0; number < count; ++number) {
      peers_.push_back(std::make_unique<Peer>(server_));
      peers_.back()->reconnects(before + std::to_string(number));
    }
  }

  std::vector<std::unique_ptr<Peer>> peers_;
  Peer tool_{server_};
  Asker asker_;
};

TEST_F(PortChanges, TellsEverythingToOneThatKnowsNothing) {
  Peer first(server_);
  first.registers("db1");
  Peer second(server_);
  second.registers("db2", "hostB", "web");
  Asker asker(server_);
  EXPECT_EQ(asker.asks(), (Told{"db1", "db2"}));
  EXPECT_EQ(asker.restarts, 1);
  EXPECT_FALSE(asker.hasMore);
  EXPECT_EQ(
      asker.known["db2"],
      (Values{
          {"name", "db2"}, {"portNumber", "5002"}, {"portHost", "hostB"}, {"portType", "web"}}));
  EXPECT_EQ(asker.asks(), Told());
  EXPECT_EQ(asker.restarts, 1);
}

TEST_F(PortChanges, TellsWhatHasChangedSinceInTheOrderOfTheLastChanges) {
  Peer first(server_);
  first.registers("db1");
  Peer second(server_);
  second.registers("db2");
  EXPECT_EQ(asker_.asks(), (Told{"db1", "db2"}));
  (void)tool_.answer({{"action", "setDatabaseState"}, {"databaseName", "db1"}, {"state", "up"}});
  EXPECT_EQ(asker_.asks(), Told{"db1"});
  EXPECT_EQ(asker_.known["db1"]["portStatus"], "up");
  first.registers("db3");
  second.reconnects("db2", "7");
  EXPECT_EQ(asker_.asks(), (Told{"-db1", "db3", "db2"}));
  EXPECT_EQ(asker_.restarts, 1);
}

TEST_F(PortChanges, TellsAllThatIsKnownOfAName) {
  Peer database(server_);
  (void)database.sends({{"reconnectPort", "a|b:c"},
                        {"portNumber", "77"},
                        {"portHost", "h"},
                        {"portType", "t"},
                        {"portHostAddress", "192.0.2.9"}});
  (void)tool_.answer({{"action", "setDatabaseState"}, {"databaseName", "a|b:c"}, {"state", "x|y"}});
  movedTime = 5000.5;
  (void)tool_.answer({{"action", "setAlertState"}, {"databaseName", "a|b:c"}, {"state", "full"}});
  ends(database);
  database.reconnects("other");
  EXPECT_EQ(asker_.asks(), (Told{"-a|b:c", "other"}));
  Peer again(server_);
  (void)again.sends({{"reconnectPort", "a|b:c"},
                     {"portNumber", "77"},
                     {"portHost", "h"},
                     {"portType", "t"},
                     {"portHostAddress", "192.0.2.9"}});
  (void)tool_.answer({{"action", "setDatabaseState"}, {"databaseName", "a|b:c"}, {"state", "x|y"}});
  (void)tool_.answer({{"action", "setAlertState"}, {"databaseName", "a|b:c"}, {"state", "full"}});
  EXPECT_EQ(asker_.asks(), Told{"a|b:c"});
  EXPECT_EQ(asker_.rowKeys,
            "name portNumber portHost portHostAddress portType portStatus alertStatus "
            "alertStatusTimestamp ");
  EXPECT_EQ(asker_.known["a|b:c"]["alertStatusTimestamp"], "5000.500000");
  EXPECT_EQ(asker_.known["a|b:c"]["portHostAddress"], "192.0.2.9");
}

TEST_F(PortChanges, LeavesOutAnAlertThatHasLapsedWhichIsNoChange) {
  Peer database(server_);
  database.registers("db1");
  (void)tool_.answer({{"action", "setAlertState"}, {"databaseName", "db1"}, {"state", "full"}});
  EXPECT_EQ(asker_.asks(), Told{"db1"});
  EXPECT_EQ(asker_.known["db1"].count("alertStatus"), 1U);
  movedTime += 3601;
  EXPECT_EQ(asker_.asks(), Told());
  Asker later(server_);
  later.asks();
  EXPECT_EQ(later.known["db1"].count("alertStatus"), 0U);
  EXPECT_EQ(asker_.asks(), Told()) << "nor is it when somebody has found that out";
}

TEST_F(PortChanges, MarksAndClearsNobody) {
  Peer database(server_);
  Peer watcher(server_);
  (void)watcher.action("didPortsChange");
  database.registers("db1");
  (void)watcher.sends({{"action", "portChanges"}});
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
  EXPECT_EQ(server_.registry.watchingPortsList().count(), 1U);
}

TEST_F(PortChanges, TellsARecordUnderEachOfItsNames) {
  Peer database(server_);
  for (const char* name : {"one", "two", "three"}) {
    database.reconnects(name);
  }
  EXPECT_EQ(asker_.asks(), (Told{"one", "two", "three"}));
  (void)tool_.answer({{"action", "setDatabaseState"}, {"databaseName", "two"}, {"state", "up"}});
  EXPECT_EQ(asker_.asks(), (Told{"one", "two", "three"}));
  ends(database);
  EXPECT_EQ(asker_.asks(), (Told{"-three", "one", "two"}));
  EXPECT_EQ(asker_.known["one"]["left"], "YES");
  Peer other(server_);
  other.reconnects("one");
  EXPECT_EQ(asker_.asks(), Told{"one"});
  EXPECT_EQ(asker_.known["one"].count("left"), 0U);
}

TEST_F(PortChanges, TellsTheOtherNamesOfARecordThatAsksForAPortOnceMore) {
  Peer database(server_);
  database.reconnects("one");
  database.reconnects("two");
  (void)asker_.asks();
  const std::string number = database.asksForPort("three");
  EXPECT_EQ(asker_.asks(), (Told{"-two", "one"}));
  EXPECT_EQ(asker_.known["one"]["portNumber"], number);
}

TEST_F(PortChanges, IsCutAtTheLimitEvenInTheMidstOfARecord) {
  Peer database(server_);
  for (int number = 0; number < 10; ++number) {
    database.reconnects("n" + std::to_string(number));
  }
  EXPECT_EQ(asker_.asks("4"), (Told{"n0", "n1", "n2", "n3"}));
  EXPECT_TRUE(asker_.hasMore);
  EXPECT_EQ(asker_.asks("4"), (Told{"n4", "n5", "n6", "n7"}));
  EXPECT_TRUE(asker_.hasMore);
  EXPECT_EQ(asker_.asks("2"), (Told{"n8", "n9"}));
  EXPECT_FALSE(asker_.hasMore) << "more than nothing";
}

TEST_F(PortChanges, TellsANameAgainThatHasChangedSinceItsPage) {
  Peer peer(server_);
  peer.reconnects("a");
  peer.reconnects("b");
  EXPECT_EQ(asker_.asks("1"), Told{"a"});
  (void)tool_.answer({{"action", "setDatabaseState"}, {"databaseName", "b"}, {"state", "down"}});
  asker_.asksForAll("1");
  EXPECT_EQ(asker_.known["a"]["portStatus"], "down");
}

TEST_F(PortChanges, TellsTheOtherNamesOfARecordThoughTheTableHasGrownMeanwhile) {
  constexpr std::size_t kNames = 1000;
  Peer peer(server_);
  for (std::size_t number = 0; number < kNames; ++number) {
    peer.reconnects("n" + std::to_string(number));
  }
  std::deque<Asker> askers;
  for (std::size_t limit = 100; limit < kNames; limit += 40) {
    EXPECT_EQ(askers.emplace_back(server_).asks(std::to_string(limit)).size(), limit);
  }
  registerMany(600);
  for (Asker& asker : askers) {
    asker.asksForAll();
    ASSERT_EQ(asker.known.size(), kNames + 600);
  }
}

TEST_F(PortChanges, GoesOnThoughTheNextNameOfTheRecordHasGoneMeanwhile) {
  Peer database(server_);
  for (int number = 0; number < 10; ++number) {
    database.reconnects("n" + std::to_string(number));
  }
  (void)asker_.asks("4");
  Peer other(server_);
  other.reconnects("n4");
  other.reconnects("another");
  (void)asker_.asksForAll("4");
  EXPECT_EQ(asker_.known.size(), 11U);
  EXPECT_EQ(asker_.restarts, 1);
}

TEST_F(PortChanges, ReadsEverythingPageByPageWhileItChanges) {
  registerMany(1000);
  Asker asker(server_);
  int next = 0;
  do {
    (void)asker.asks("7");
    ends(*peers_[static_cast<std::size_t>(next)]);
    peers_[static_cast<std::size_t>(999 - next)]->reconnects("again" + std::to_string(next));
    ++next;
  } while (asker.hasMore && next < 400);
  (void)asker.asksForAll();
  EXPECT_EQ(asker.restarts, 1);
  Asker anew(server_);
  (void)anew.asksForAll();
  EXPECT_EQ(asker.known, anew.known);
  EXPECT_EQ(anew.known.size(), server_.registry.portCount());
}

TEST_F(PortChanges, HasALimitBetweenOneAndTenThousand) {
  registerMany(1200);
  const auto toldWith = [&](const std::string& limit) {
    Asker asker(server_);
    return asker.asks(limit).size();
  };
  EXPECT_EQ(toldWith("1"), 1U);
  EXPECT_EQ(toldWith("1100"), 1100U);
  EXPECT_EQ(toldWith("10000"), 1200U);
  for (const char* limit : {"", "0", "10001", "-1", "+5", "5 ", "x", "99999999999999999999999"}) {
    EXPECT_EQ(toldWith(limit), 1000U) << limit;
  }
}

TEST_F(PortChanges, HasAboutAMebibyteButAtLeastOneName) {
  const std::string half(std::size_t{500} << 10, 's');
  registerMany(5);
  for (int number = 0; number < 5; ++number) {
    (void)tool_.answer({{"action", "setDatabaseState"},
                        {"databaseName", "name" + std::to_string(number)},
                        {"state", half}});
  }
  EXPECT_EQ(asker_.asks().size(), 2U);
  EXPECT_TRUE(asker_.hasMore);
  EXPECT_LE(asker_.bytes, (std::size_t{1} << 20) + 300);
  (void)tool_.answer(
      {{"action", "setDatabaseState"}, {"databaseName", "name4"}, {"state", half + half + half}});
  EXPECT_EQ(asker_.asks(), (Told{"name2", "name3"}));
  EXPECT_EQ(asker_.asks(), Told{"name4"});
  EXPECT_FALSE(asker_.hasMore);
}

TEST_F(PortChanges, TellsOneChangeShortlyHoweverManyNamesThereAre) {
  registerMany(5000);
  (void)asker_.asksForAll();
  (void)tool_.answer(
      {{"action", "setDatabaseState"}, {"databaseName", "name77"}, {"state", "stopping"}});
  EXPECT_EQ(asker_.asks(), Told{"name77"});
  EXPECT_LT(asker_.bytes, 300U);
}

TEST_F(PortChanges, RestartsForAPositionThatIsNotItsOwn) {
  Peer database(server_);
  database.registers("db1");
  (void)asker_.asks();
  const std::string instance = asker_.instance;
  const std::string sequence = asker_.sequence;
  int restarts = 1;
  const auto restartsWith = [&](const std::string& otherInstance, const std::string& since) {
    asker_.instance = otherInstance;
    asker_.sequence = since;
    EXPECT_EQ(asker_.asks(), Told{"db1"});
    EXPECT_EQ(asker_.restarts, ++restarts) << since;
    EXPECT_EQ(asker_.instance, instance);
    EXPECT_EQ(asker_.sequence, sequence);
  };
  restartsWith("another", sequence);
  restartsWith(instance, "x");
  restartsWith(instance, "1000000");
  restartsWith(instance, std::string(20, '9'));
  // Begun later than the last change; then a hint of a slot that is no slot, which is only a hint.
  restartsWith(instance, "0" + std::string(20, '0') + "00000000000000001000" + "0000");
  asker_.sequence = "0" + std::string(10, '3') + "0000000007" + std::string(24, '0');
  EXPECT_EQ(asker_.asks(), Told{"db1"});
  EXPECT_EQ(asker_.restarts, restarts);
}

TEST_F(PortChanges, HasAnotherInstanceInEachRegistry) {
  CommandServer other;
  Asker asker(other);
  (void)asker.asks();
  EXPECT_EQ(asker.instance.size(), 32U);
  EXPECT_NE(asker.instance, asker_.instance);
}

TEST_F(PortChanges, DoesNotTellAsGoneWhatIsThereAgain) {
  Peer database(server_);
  database.registers("db1");
  (void)asker_.asks();
  ends(database);
  Peer again(server_);
  again.registers("db1");
  EXPECT_EQ(asker_.asks(), Told{"db1"});
}

TEST_F(PortChanges, MayWaitOnlyWhenThereIsMuchToTell) {
  registerMany(1000);
  Asker asker(server_);
  (void)asker.asks();
  EXPECT_TRUE(server_.lastMayWait);
  (void)asker.asksForAll();
  (void)asker.asks();
  EXPECT_FALSE(server_.lastMayWait);
  registerMany(5, "more");
  (void)asker.asks();
  EXPECT_FALSE(server_.lastMayWait);
  (void)tool_.answer({{"action", "setDatabaseState"},
                      {"databaseName", "more1"},
                      {"state", std::string(70000, 's')}});
  (void)asker.asks();
  EXPECT_TRUE(server_.lastMayWait);
  Peer database(server_);
  for (int number = 0; number < 200; ++number) {
    database.reconnects("n" + std::to_string(number));
  }
  (void)asker.asksForAll();
  (void)tool_.answer({{"action", "setDatabaseState"}, {"databaseName", "n7"}, {"state", "up"}});
  (void)asker.asks();
  EXPECT_TRUE(server_.lastMayWait) << "one change of many names";
  (void)asker.asksForAll();
  for (int number = 0; number < 200; ++number) {
    ends(*peers_[static_cast<std::size_t>(number)]);
  }
  (void)asker.asks();
  EXPECT_TRUE(server_.lastMayWait) << "many that are gone";
}

// ---- Names that are gone

class PortChangesOfFewRemovals : public PortChanges {
 protected:
  PortChangesOfFewRemovals() : small_({.removed = {.names = 3}}), asker_(small_) {}

  void comesAndGoes(const std::string& name) {
    Peer database(small_);
    database.reconnects(name);
    small_.registry.endPort(database.record());
  }

  CommandServer small_;
  Asker asker_;
};

TEST_F(PortChangesOfFewRemovals, RestartsWhenARemovalSinceWasForgotten) {
  Peer stays(small_);
  stays.reconnects("stays");
  (void)asker_.asks();
  for (const char* name : {"a", "b", "c"}) {
    comesAndGoes(name);
  }
  EXPECT_EQ(asker_.asks(), (Told{"-a", "-b", "-c"}));
  for (const char* name : {"d", "e", "f", "g"}) {
    comesAndGoes(name);
  }
  EXPECT_EQ(asker_.asks(), Told{"stays"});
  EXPECT_EQ(asker_.restarts, 2);
  comesAndGoes("h");
  EXPECT_EQ(asker_.asks(), Told{"-h"});
  EXPECT_EQ(asker_.restarts, 2);
}

TEST_F(PortChangesOfFewRemovals, ReadsOnFromTheStartThoughOlderRemovalsAreForgotten) {
  std::vector<std::unique_ptr<Peer>> peers;
  for (int number = 0; number < 10; ++number) {
    comesAndGoes("gone" + std::to_string(number));
    peers.push_back(std::make_unique<Peer>(small_));
    peers.back()->reconnects("name" + std::to_string(number));
  }
  EXPECT_EQ(asker_.asksForAll("3"), 4) << "removals before the start are not told";
  EXPECT_EQ(asker_.restarts, 1);
  EXPECT_EQ(asker_.known.size(), 10U);
}

TEST_F(PortChangesOfFewRemovals, BeginsAnewWhenARemovalSinceTheStartWasForgotten) {
  std::vector<std::unique_ptr<Peer>> peers;
  for (int number = 0; number < 10; ++number) {
    peers.push_back(std::make_unique<Peer>(small_));
    peers.back()->reconnects("name" + std::to_string(number));
  }
  (void)asker_.asks("5");
  for (int number = 0; number < 4; ++number) {
    small_.registry.endPort(peers[static_cast<std::size_t>(number)]->record());
  }
  (void)asker_.asksForAll("3");
  EXPECT_EQ(asker_.restarts, 2);
  EXPECT_EQ(asker_.known.size(), 6U);
}

// ---- Names that are forgotten

class ForgetPort : public PortChanges {
 protected:
  std::string forgets(std::string_view name) {
    return tool_.answer({{"action", "forgetPort"}, {"name", name}});
  }
};

TEST_F(ForgetPort, TakesOutANameThatWasLeftBehind) {
  Peer database(server_);
  database.reconnects("one");
  database.reconnects("two");
  EXPECT_EQ(forgets("one"), "failed") << "its connection lives";
  ends(database);
  (void)tool_.action("didPortsChange");
  (void)asker_.asks();
  EXPECT_EQ(forgets("one"), "success");
  EXPECT_EQ(tool_.action("didPortsChange"), "YES");
  EXPECT_EQ(tool_.finds("one"), "(none)");
  EXPECT_EQ(asker_.asks(), Told{"-one"});
}

TEST_F(ForgetPort, FailsAndMarksNobodyForAnyOtherName) {
  Peer database(server_);
  database.reconnects("living");
  server_.registry.enterPort("VN_nameserver", std::make_shared<PortDescriptor>());
  (void)tool_.action("didPortsChange");
  for (const char* name : {"living", "VN_nameserver", "unknown", ""}) {
    EXPECT_EQ(forgets(name), "failed") << name;
  }
  EXPECT_THROW((void)tool_.sends({{"action", "forgetPort"}}), NSException);
  EXPECT_EQ(tool_.action("didPortsChange"), "NO");
  EXPECT_EQ(tool_.finds("living"), "4000");
}

}  // namespace
}  // namespace sorvane::test
