#include <algorithm>
#include <memory>

#include "registry/CommandServer.h"
#include "registry/StateSummary.h"

namespace sorvane::test {
namespace {

class DatabaseStates : public CommandTest {
 protected:
  std::string sets(std::string_view action, std::string_view name, std::string_view text) {
    return tool_.answer({{"action", action}, {"databaseName", name}, {"state", text}});
  }
  // The entries in the order of their bytes: the map's own order is free.
  std::string list(std::string_view key) {
    const std::string text = tool_.action("databaseStates", key);
    std::vector<std::string> entries;
    std::size_t begin = 0;
    for (std::size_t bar = text.find('|'); bar != std::string::npos; bar = text.find('|', begin)) {
      entries.push_back(text.substr(begin, bar - begin));
      begin = bar + 1;
    }
    entries.push_back(text.substr(begin));
    std::sort(entries.begin(), entries.end());
    std::string sorted;
    for (const std::string& entry : entries) {
      sorted += (sorted.empty() ? "" : "|") + entry;
    }
    return sorted;
  }
  std::string states() { return list("result"); }
  std::string alerts() { return list("alerts"); }

  Peer tool_{server_};
  Peer db1_{server_};
  Peer db2_{server_};
};
using SetDatabaseState = DatabaseStates;
using SetAlertState = DatabaseStates;

TEST_F(DatabaseStates, AreBothEmptyWithoutPorts) {
  const auto reply = tool_.sends({{"action", "databaseStates"}});
  EXPECT_EQ(keysOf(reply), "result alerts ");
  EXPECT_EQ(reply->data("result"), std::string_view("\0", 1));
  EXPECT_EQ(reply->data("alerts"), std::string_view("\0", 1));
}

TEST_F(DatabaseStates, TellTheStateOfEachAndTheAlertsThereAre) {
  db1_.registers("db1");
  db2_.registers("db2");
  EXPECT_EQ(sets("setDatabaseState", "db2", "stopping"), "success");
  EXPECT_EQ(sets("setAlertState", "db2", "disk full"), "success");
  EXPECT_EQ(states(), "db1:running|db2:stopping");
  EXPECT_EQ(alerts(), "db2:disk full");
}

TEST_F(DatabaseStates, ListBothInTheSameOrder) {
  std::vector<std::unique_ptr<Peer>> peers;
  for (int index = 0; index < 50; ++index) {
    const std::string name = "db" + std::to_string(index);
    peers.push_back(std::make_unique<Peer>(server_));
    peers.back()->registers(name);
    (void)sets("setDatabaseState", name, "s");
    (void)sets("setAlertState", name, "s");
  }
  const std::string states = tool_.action("databaseStates");
  EXPECT_EQ(std::count(states.begin(), states.end(), '|'), 49);
  EXPECT_EQ(states, tool_.action("databaseStates", "alerts"));
}

TEST_F(DatabaseStates, LeaveTheOwnPortsAndTheLauncherOut) {
  Peer launcher(server_);
  Peer nameserver(server_);
  Peer infoserver(server_);
  Peer similar(server_);
  launcher.registers("sorvexec");
  nameserver.registers("VN_nameserver");
  infoserver.registers("VN_infoserver");
  similar.registers("Sorvexec");
  for (const char* name : {"sorvexec", "VN_nameserver", "VN_infoserver"}) {
    (void)sets("setAlertState", name, "x");
  }
  EXPECT_EQ(states(), "Sorvexec:running");
  EXPECT_EQ(alerts(), "");
}

TEST_F(DatabaseStates, ListARecordUnderTwoNamesTwiceByItsPresentName) {
  db1_.reconnects("old");
  db1_.reconnects("new");
  EXPECT_EQ(states(), "new:running|new:running");
}

TEST_F(DatabaseStates, KeepTextsAsTheyCame) {
  db1_.registers("a|b:c");
  (void)sets("setDatabaseState", "a|b:c", "");
  EXPECT_EQ(tool_.action("databaseStates"), "a|b:c:");
}

TEST_F(DatabaseStates, DropAnAlertAtTheFirstRebuildAfterItsHour) {
  db1_.registers("db1");
  (void)sets("setAlertState", "db1", "disk full");
  movedTime += 3600.0;
  EXPECT_EQ(alerts(), "db1:disk full");
  movedTime += 1.0;
  EXPECT_EQ(alerts(), "db1:disk full") << "both lists still stand";
  server_.registry.setWatchToDirty();
  EXPECT_EQ(alerts(), "");
}

TEST_F(DatabaseStates, RebuildBothListsWhenTheStateListIsDropped) {
  db1_.registers("db1");
  EXPECT_EQ(alerts(), "");
  server_.registry.with([](RegistryState& state) { state.map.setAlert("db1", "behind the back"); });
  EXPECT_EQ(alerts(), "") << "the lists stand";
  server_.registry.setWatchToDirty();
  EXPECT_EQ(alerts(), "db1:behind the back");
}

TEST_F(DatabaseStates, AMarkingDropsTheStateListAlone) {
  (void)states();
  server_.registry.setWatchersDirty();
  server_.registry.with([](const RegistryState& state) {
    EXPECT_EQ(state.databaseStateString, nullptr);
    EXPECT_NE(state.databaseAlertString, nullptr);
  });
}

TEST_F(DatabaseStates, AreNotBuiltAgainWhileNothingChanged) {
  (void)states();
  const auto kept =
      server_.registry.with([](const RegistryState& state) { return state.databaseStateString; });
  (void)states();
  server_.registry.with(
      [&](const RegistryState& state) { EXPECT_EQ(state.databaseStateString, kept); });
}

TEST_F(DatabaseStates, MayWaitOnlyForALongListThatMustBeBuilt) {
  (void)tool_.action("databaseStates");
  EXPECT_FALSE(server_.lastMayWait);
  for (int index = 0; index < 1000; ++index) {
    auto record = std::make_shared<PortDescriptor>();
    record->setPortName("db");
    server_.registry.enterPort("db" + std::to_string(index), record);
  }
  (void)tool_.action("databaseStates");
  EXPECT_FALSE(server_.lastMayWait) << "the lists stand";
  server_.registry.setWatchToDirty();
  (void)tool_.action("databaseStates");
  EXPECT_TRUE(server_.lastMayWait);
}

TEST_F(DatabaseStates, MayWaitFromTheFirstPortOrByteBeyondWhatIsBuiltAtOnce) {
  const auto mayWait = [](CommandServer& server) {
    Peer tool(server);
    server.registry.setWatchToDirty();
    (void)tool.action("databaseStates");
    return server.lastMayWait;
  };
  const auto enterPorts = [](CommandServer& server, int from, int to) {
    for (int index = from; index < to; ++index) {
      auto record = std::make_shared<PortDescriptor>();
      record->setPortName("db");
      server.registry.enterPort("db" + std::to_string(index), record);
    }
  };
  enterPorts(server_, 0, 500);
  EXPECT_FALSE(mayWait(server_));
  enterPorts(server_, 500, 501);
  EXPECT_TRUE(mayWait(server_));

  CommandServer ofOne;
  enterPorts(ofOne, 0, 1);
  const auto stateHas = [&](std::size_t bytes) {
    ofOne.registry.with([&](RegistryState& state) {
      state.map.setStatus("db0", std::string(bytes - std::string_view("db:").size(), 's'));
    });
  };
  stateHas(65536);
  EXPECT_FALSE(mayWait(ofOne));
  stateHas(65537);
  EXPECT_TRUE(mayWait(ofOne));
}

TEST_F(DatabaseStates, MustBuildMoreThanAnyNumberThatIsPassed) {
  db1_.registers("db1");
  (void)sets("setDatabaseState", "db1", "stopping");
  (void)sets("setAlertState", "db1", "disk full");
  Registry& registry = server_.registry;
  const auto exact = registry.with([](const RegistryState& state) {
    return StateSummary::Work{.ports = state.map.size(),
                              .slots = state.map.slotCount(),
                              .bytes = std::string_view("db1:stopping").size() +
                                       std::string_view("db1:disk full").size()};
  });
  EXPECT_FALSE(StateSummary::mustBuildMoreThan(exact, registry));
  StateSummary::Work less = exact;
  --less.ports;
  EXPECT_TRUE(StateSummary::mustBuildMoreThan(less, registry));
  less = exact;
  --less.slots;
  EXPECT_TRUE(StateSummary::mustBuildMoreThan(less, registry));
  less = exact;
  --less.bytes;
  EXPECT_TRUE(StateSummary::mustBuildMoreThan(less, registry));
  (void)states();
  EXPECT_FALSE(StateSummary::mustBuildMoreThan(less, registry)) << "both lists stand";
  registry.with([](RegistryState& state) { state.databaseAlertString = nullptr; });
  EXPECT_TRUE(StateSummary::mustBuildMoreThan(less, registry)) << "only one of them stands";
  (void)states();
  registry.with([](RegistryState& state) { state.databaseStateString = nullptr; });
  EXPECT_TRUE(StateSummary::mustBuildMoreThan(less, registry)) << "only the other one stands";
}

TEST_F(DatabaseStates, MayFillAReplyToItsLastByte) {
  db1_.registers("db1");
  db2_.registers("db2");
  const std::size_t others = textEntryBytes("result", 0) + textEntryBytes("alerts", 0) +
                             std::string_view("db1:|db2:").size();
  const std::size_t texts = kMaximumReplyBytes - others;
  const auto statesHave = [&](std::size_t bytes) {
    server_.registry.with([&](RegistryState& state) {
      state.map.setStatus("db1", std::string(bytes / 2, 's'));
      state.map.setStatus("db2", std::string(bytes - bytes / 2, 's'));
    });
    server_.registry.setWatchToDirty();
  };
  statesHave(texts);
  EXPECT_EQ(tool_.sends({{"action", "databaseStates"}})->body().size(), kMaximumReplyBytes);
  statesHave(texts + 1);
  EXPECT_THROW((void)tool_.sends({{"action", "databaseStates"}}), NSException);
  server_.registry.with([](const RegistryState& state) {
    EXPECT_EQ(state.databaseStateString, nullptr) << "not even made";
  });
}

TEST_F(DatabaseStates, MayWaitForALongListOfAFewPorts) {
  for (int number = 0; number < 10; ++number) {
    db1_.reconnects("db" + std::to_string(number));
  }
  (void)tool_.action("databaseStates");
  EXPECT_FALSE(server_.lastMayWait);
  db1_.reconnects(std::string(6000, 'n'));
  (void)tool_.action("databaseStates");
  EXPECT_TRUE(server_.lastMayWait) << "the name is told once for each entry";
  (void)tool_.action("databaseStates");
  EXPECT_FALSE(server_.lastMayWait) << "the lists stand";
}

TEST_F(DatabaseStates, LongerThanAReplyRaiseAndAreNotMade) {
  for (int number = 0; number < 70; ++number) {
    db1_.reconnects("db" + std::to_string(number));
  }
  db1_.reconnects(std::string(1000000, 'n'));
  EXPECT_THROW((void)tool_.action("databaseStates"), NSException);
  server_.registry.with(
      [](const RegistryState& state) { EXPECT_EQ(state.databaseStateString, nullptr); });
  db1_.reconnects("short");
  EXPECT_NE(tool_.action("databaseStates").find("short:running|short:running"), std::string::npos);
}

TEST_F(DatabaseStates, HaveExactlyTheLengthThatIsToldBefore) {
  db1_.registers("db1");
  db2_.reconnects("db2");
  db2_.reconnects("db3");
  (void)sets("setDatabaseState", "db2", "stopping");
  (void)sets("setAlertState", "db1", "disk full");
  const std::uint64_t told = server_.registry.with([](const RegistryState& state) {
    return state.map.stateListBytes() + state.map.alertListBytes();
  });
  EXPECT_THROW((void)StateSummary::current(server_.registry, told - 1), NSException);
  const StateSummary lists = StateSummary::current(server_.registry, told);
  EXPECT_EQ(lists.states->size() + lists.alerts->size(), told);
}

TEST_F(DatabaseStates, AreNotTooLongForAlertsThatHaveLapsed) {
  db1_.registers("db1");
  (void)sets("setAlertState", "db1", std::string(5000, 'a'));
  movedTime += 3601.0;
  const std::uint64_t ofStates = std::string_view("db1:running").size();
  EXPECT_EQ(*StateSummary::current(server_.registry, ofStates).states, "db1:running");
}

TEST_F(DatabaseStates, AreNotTooLongForAFewAlertsThatHaveLapsed) {
  db1_.registers("db1");
  (void)sets("setAlertState", "db1", "x");
  movedTime += 3601.0;
  const std::uint64_t ofStates = std::string_view("db1:running").size();
  EXPECT_EQ(*StateSummary::current(server_.registry, ofStates).states, "db1:running");
}

TEST_F(DatabaseStates, AreTooLongWithAlertsThatHaveNotLapsed) {
  db1_.registers("db1");
  (void)sets("setAlertState", "db1", "x");
  const std::uint64_t both =
      std::string_view("db1:running").size() + std::string_view("db1:x").size();
  EXPECT_THROW((void)StateSummary::current(server_.registry, both - 1), NSException);
  EXPECT_EQ(*StateSummary::current(server_.registry, both).alerts, "db1:x");
}

TEST_F(DatabaseStates, LetGoOfALongAlertListWithTheStateList) {
  db1_.registers("db1");
  (void)sets("setAlertState", "db1", std::string(100000, 'a'));
  (void)states();
  server_.registry.setWatchersDirty();
  server_.registry.with(
      [](const RegistryState& state) { EXPECT_EQ(state.databaseAlertString, nullptr); });
  EXPECT_EQ(alerts().size(), 100004U);
}

TEST_F(DatabaseStates, KeepAnAlertListOfUpTo64KibibytesWhenAMarkingDropsTheStateList) {
  db1_.registers("db1");
  for (const std::size_t bytes : {65536U, 65537U}) {
    (void)sets("setAlertState", "db1", std::string(bytes - std::string_view("db1:").size(), 'a'));
    (void)states();
    server_.registry.setWatchersDirty();
    server_.registry.with([&](const RegistryState& state) {
      EXPECT_EQ(state.databaseAlertString != nullptr, bytes == 65536U);
    });
  }
}

TEST_F(DatabaseStates, MayWaitWhileTheRoomOfALongListIsStillThere) {
  for (int index = 0; index < 4000; ++index) {
    server_.registry.enterPort("db" + std::to_string(index), std::make_shared<PortDescriptor>());
  }
  for (int index = 0; index < 4000; ++index) {
    server_.registry.with(
        [&](RegistryState& state) { return state.map.remove("db" + std::to_string(index)); });
  }
  (void)tool_.action("databaseStates");
  EXPECT_TRUE(server_.lastMayWait);
  server_.registry.setWatchToDirty();
  server_.registry.enterPort("last", std::make_shared<PortDescriptor>());
  (void)tool_.action("databaseStates");
  EXPECT_FALSE(server_.lastMayWait);
}

TEST_F(DatabaseStates, BuiltWhileAConnectionClosedAreNotKept) {
  Registry& registry = server_.registry;
  const auto droppedTimes = registry.with([](const RegistryState& s) { return s.stateVersion; });
  const StateSummary built = {std::make_shared<const std::string>("db1:running"),
                              std::make_shared<const std::string>("db1:x")};
  registry.setWatchersDirty();
  built.cache(registry, droppedTimes);
  registry.with([&](const RegistryState& state) {
    EXPECT_EQ(state.databaseStateString, nullptr);
    EXPECT_EQ(state.databaseAlertString, built.alerts);
  });
  built.cache(registry, droppedTimes + 1);
  registry.with(
      [&](const RegistryState& state) { EXPECT_EQ(state.databaseStateString, built.states); });
}

TEST_F(SetDatabaseState, ReachesTheRegisteredRecordAndMarksTheWatchers) {
  db1_.registers("db1");
  (void)tool_.action("didPortsChange");
  EXPECT_EQ(sets("setDatabaseState", "db1", "stopping"), "success");
  EXPECT_EQ(db1_.record().portStatus(), "stopping");
  EXPECT_EQ(tool_.action("didPortsChange"), "YES");
  EXPECT_EQ(sets("setDatabaseState", "db1", "starting"), "success");
  EXPECT_EQ(states(), "db1:starting");
}

TEST_F(SetDatabaseState, OfAnUnknownNameSucceedsStoresNothingAndMarks) {
  db1_.registers("db1");
  (void)tool_.action("didPortsChange");
  EXPECT_EQ(sets("setDatabaseState", "DB1", "stopping"), "success");
  EXPECT_FALSE(db1_.record().portStatus().has_value());
  EXPECT_EQ(tool_.action("didPortsChange"), "YES");
}

TEST_F(SetDatabaseState, WithoutAKeyFailsDropsTheStateListAndMarksNobody) {
  (void)tool_.action("didPortsChange");
  const Message requests[] = {
      {{"action", "setDatabaseState"}},
      {{"action", "setDatabaseState"}, {"state", "x"}},
      {{"action", "setDatabaseState"}, {"databaseName", "db1"}},
  };
  for (const Message& request : requests) {
    (void)states();
    EXPECT_EQ(tool_.answer(request), "failed");
    server_.registry.with([](const RegistryState& state) {
      EXPECT_EQ(state.databaseStateString, nullptr);
      EXPECT_NE(state.databaseAlertString, nullptr);
    });
    EXPECT_EQ(tool_.action("didPortsChange"), "NO");
  }
}

// What ended connections left behind is held to its limit also when a text makes it grow.
TEST_F(DatabaseStates, OfANameThatWasLeftBehindCountAmongWhatEndedConnectionsLeft) {
  CommandServer server({.leftBehind = 4000});
  Peer leaving(server);
  Peer tool(server);
  const auto sets = [&](const std::string& text) {
    return tool.answer({{"action", "setDatabaseState"}, {"databaseName", "old"}, {"state", text}});
  };
  leaving.reconnects("old");
  leaving.reconnects("new");
  server.registry.endPort(leaving.record());
  EXPECT_EQ(sets("a few words"), "success");
  EXPECT_EQ(tool.finds("old"), "4000");
  EXPECT_EQ(sets(std::string(4000, 'x')), "success");
  EXPECT_EQ(tool.finds("old"), "(none)");
  EXPECT_EQ(server.registry.takeDroppedPorts(), 1U);
}

TEST_F(SetDatabaseState, WithAValueThatIsNoTextRaisesAndChangesNothing) {
  db1_.registers("db1");
  (void)states();
  (void)tool_.action("didPortsChange");
  for (const char* action : {"setDatabaseState", "setAlertState"}) {
    for (const char* key : {"state", "databaseName"}) {
      for (const char* bytes : {"", "\xff"}) {
        Message request({{"action", action}, {"state", "x"}, {"databaseName", "db1"}});
        request.setData(key, bytes);
        EXPECT_THROW((void)tool_.sends(request), NSException);
      }
    }
  }
  EXPECT_FALSE(db1_.record().portStatus().has_value());
  EXPECT_FALSE(db1_.record().alertStatus().has_value());
  EXPECT_EQ(tool_.action("didPortsChange"), "NO");
  server_.registry.with([](const RegistryState& state) {
    EXPECT_NE(state.databaseStateString, nullptr);
    EXPECT_NE(state.databaseAlertString, nullptr);
  });
}

TEST_F(SetAlertState, ReachesTheRegisteredRecordWithItsTimeAndMarksTheWatchers) {
  db1_.registers("db1");
  (void)tool_.action("didPortsChange");
  movedTime = 4000.0;
  EXPECT_EQ(sets("setAlertState", "db1", "disk full"), "success");
  EXPECT_EQ(db1_.record().alertStatus(), "disk full");
  EXPECT_EQ(db1_.record().alertStatusTimestamp(), 4000.0);
  EXPECT_EQ(tool_.action("didPortsChange"), "YES");
}

TEST_F(SetAlertState, ForAnUnknownNameSucceeds) {
  EXPECT_EQ(sets("setAlertState", "nobody", "x"), "success");
  EXPECT_EQ(alerts(), "");
}

TEST_F(SetAlertState, WithoutAKeyFailsAndDropsTheAlertListAlone) {
  (void)states();
  EXPECT_EQ(tool_.answer({{"action", "setAlertState"}, {"databaseName", "db1"}}), "failed");
  server_.registry.with([](const RegistryState& state) {
    EXPECT_NE(state.databaseStateString, nullptr);
    EXPECT_EQ(state.databaseAlertString, nullptr);
  });
}

TEST_F(SetAlertState, GoesToTheRecordThatHoldsTheNameNow) {
  db1_.registers("db1");
  db2_.registers("db1");
  (void)sets("setAlertState", "db1", "x");
  EXPECT_FALSE(db1_.record().alertStatus().has_value());
  EXPECT_EQ(db2_.record().alertStatus(), "x");
}

}  // namespace
}  // namespace sorvane::test
