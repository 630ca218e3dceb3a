#include "nameserver/NameServer.h"

namespace sorvane::test {
namespace {

class ConnectionEnd : public ServerTest {
 protected:
  ConnectionEnd() { (void)watcher_.action("didPortsChange"); }
  HostLists hosts() {
    return server_.registry().with([](const RegistryState& state) { return state.hosts; });
  }
  void hostsAre(HostLists::List first, HostLists::List second) {
    server_.registry().with([&](RegistryState& state) {
      state.hosts.hostList = std::move(first);
      state.hosts.alternateHostList = std::move(second);
    });
  }
  // A launcher that registered from that host.
  void launcherLeaves(std::string_view name, std::string_view host, std::string_view address) {
    Peer launcher(server_);
    (void)launcher.sends({{"newPort", ""},
                          {"portName", name},
                          {"portHost", host},
                          {"portHostAddress", address},
                          {"portType", ""}});
    launcher.accepts();
  }

  Peer watcher_{server_};
};

TEST_F(ConnectionEnd, ForgetsItsPortAndTellsTheWatchers) {
  Peer peer(server_);
  peer.registers("db1");
  (void)watcher_.action("didPortsChange");
  setTimeSource([] { return 7777.0; });
  peer.leaves();
  EXPECT_EQ(watcher_.finds("db1"), "(none)");
  EXPECT_EQ(watcher_.action("didPortsChange"), "YES");
  EXPECT_EQ(watcher_.action("changeTimestamp"), "7777.000000");
}

TEST_F(ConnectionEnd, WithoutARegistrationRemovesNothingAndStillTellsTheWatchers) {
  Peer other(server_);
  other.registers("db1");
  (void)watcher_.action("didPortsChange");
  { const Peer peer(server_); }
  EXPECT_EQ(watcher_.finds("db1"), "5001");
  EXPECT_EQ(watcher_.action("didPortsChange"), "YES");
}

TEST_F(ConnectionEnd, OfANameThatWasNeverAcceptedRemovesWhoeverHoldsIt) {
  Peer holder(server_);
  holder.registers("db1");
  {
    Peer peer(server_);
    peer.asksForPort("db1");
  }
  EXPECT_EQ(watcher_.finds("db1"), "(none)");
}

TEST_F(ConnectionEnd, RemovesItsNameEvenFromALaterRegistration) {
  Peer first(server_);
  Peer second(server_);
  first.registers("db1");
  second.registers("db1");
  first.leaves();
  EXPECT_EQ(watcher_.finds("db1"), "(none)");
}

TEST_F(ConnectionEnd, LeavesAnEarlierNameOfAReconnection) {
  Peer peer(server_);
  peer.reconnects("old");
  peer.reconnects("new");
  peer.leaves();
  EXPECT_EQ(watcher_.finds("new"), "(none)");
  EXPECT_EQ(watcher_.finds("old"), "4000");
}

TEST_F(ConnectionEnd, TakesEveryOccurrenceOffTheWatchList) {
  Peer peer(server_);
  (void)peer.action("watchPortChanges");
  (void)peer.action("watchPortChanges");
  (void)peer.action("didPortsChange");
  EXPECT_EQ(server_.registry().watchingPortsList().count(), 3U);
  peer.leaves();
  EXPECT_EQ(server_.registry().watchingPortsList().count(), 1U);
}

TEST_F(ConnectionEnd, OfALauncherRemovesItsHostFromBothLists) {
  hostsAre({"a@1", "b@2", "b@2", "c@3"}, {"p", "q", "r", "s"});
  launcherLeaves("sorvexec", "b", "2");
  EXPECT_EQ(hosts().hostList, (HostLists::List{"a@1", "b@2", "c@3"}));
  EXPECT_EQ(hosts().alternateHostList, (HostLists::List{"p", "r", "s"}));
  EXPECT_EQ(log(), "REMOVE HOST b@2 \n\n");
}

TEST_F(ConnectionEnd, OfALauncherThatIsNotListedRemovesNoHost) {
  hostsAre({"a@1"}, {"p"});
  launcherLeaves("sorvexec", "a", "2");
  EXPECT_EQ(hosts().hostList, HostLists::List{"a@1"});
  EXPECT_EQ(log(), "");
}

TEST_F(ConnectionEnd, OfAPortWithAnotherNameRemovesNoHost) {
  hostsAre({"a@1"}, {"p"});
  launcherLeaves("SORVEXEC", "a", "1");
  launcherLeaves("db1", "a", "1");
  EXPECT_EQ(hosts().hostList, HostLists::List{"a@1"});
  EXPECT_EQ(log(), "");
}

TEST_F(ConnectionEnd, TakesNoServerLock) {
  Peer peer(server_);
  peer.registers("db1");
  server_.serverLock().lock();
  peer.leaves();
  server_.serverLock().unlock();
  EXPECT_EQ(watcher_.finds("db1"), "(none)");
}

TEST_F(ConnectionEnd, SkipsTheMarkingWhileAnotherIsUnderWay) {
  Peer peer(server_);
  peer.registers("db1");
  (void)watcher_.action("didPortsChange");
  setTimeSource([] { return 7777.0; });
  server_.registry().setDirtyLock().lock();
  peer.leaves();
  server_.registry().setDirtyLock().unlock();
  EXPECT_EQ(watcher_.action("didPortsChange"), "NO");
  EXPECT_EQ(watcher_.finds("db1"), "(none)");
  EXPECT_EQ(watcher_.action("changeTimestamp"), "7777.000000") << "stamped all the same";
}

TEST_F(ConnectionEnd, WithoutARecordStillTellsTheWatchers) {
  NetConnection stranger;
  server_.endCommunication(stranger);
  EXPECT_EQ(watcher_.action("didPortsChange"), "YES");
}

TEST_F(ConnectionEnd, OfAClientOfTheInfoServerWaitsForIt) {
  Peer client(server_);
  (void)client.action("get_userpreferences_key");
  EXPECT_NE(client.record().info(), nullptr);
  client.leaves();
  EXPECT_TRUE(server_.infoserver()->commLock().tryLock()) << "taken and released";
  server_.infoserver()->commLock().unlock();
}

TEST_F(ConnectionEnd, DropsTheStateList) {
  Peer peer(server_);
  peer.registers("db1");
  EXPECT_EQ(watcher_.action("databaseStates"), "db1:running");
  peer.leaves();
  EXPECT_EQ(watcher_.action("databaseStates"), "");
}

TEST_F(ConnectionEnd, ReleasesTheRecord) {
  auto connection = std::make_unique<InProcessConnection>();
  server_.startCommunication(*connection);
  const std::weak_ptr<PortDescriptor> record = connection->contextObject<PortDescriptor>();
  (void)deliverInProcess(
      server_,
      Message(
          {{"reconnectPort", "db1"}, {"portNumber", "1"}, {"portHost", "h"}, {"portType", "t"}}),
      *connection);
  (void)deliverInProcess(server_, Message({{"action", "watchPortChanges"}}), *connection);
  server_.endCommunication(*connection);
  connection.reset();
  EXPECT_TRUE(record.expired());
}

TEST_F(ConnectionEnd, StartGivesEachConnectionARecordOfItsOwn) {
  Peer first(server_);
  Peer second(server_);
  EXPECT_NE(&first.record(), &second.record());
  EXPECT_FALSE(first.record().portName().has_value());
  EXPECT_TRUE(first.record().isDirty());
}

}  // namespace
}  // namespace sorvane::test
