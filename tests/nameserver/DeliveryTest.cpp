#include <stdexcept>

#include "nameserver/NameServer.h"
#include "support/WatchedThread.h"

namespace sorvane::test {
namespace {

class Deliveries : public ServerTest {
 protected:
  /// What a serving thread gets, on which nothing is waited for.
  std::optional<Reply> withoutWaiting(const Message& request) {
    Turn turn;
    return withoutWaiting(request, turn);
  }
  std::optional<Reply> withoutWaiting(const Message& request, Turn& turn) {
    output_.clear();
    return server_.deliverWithoutWaiting(request, connection_, turn);
  }
  /// What a waiting thread gets, on which no disk is waited for.
  Delivery withoutDisk(const Message& request) {
    output_.clear();
    return server_.deliverWithoutDisk(request, connection_);
  }
  bool serverLockIsFree() {
    if (!server_.serverLock().tryLock()) {
      return false;
    }
    server_.serverLock().unlock();
    return true;
  }

  Deliveries() { connection_.setReplyBuffer(&output_); }

  ReplyBuffer output_;
  InProcessConnection connection_;
  Peer peer_{server_};
};

const Message kPing({{"ping", ""}});

TEST_F(Deliveries, OfAPingAnswersAnEmptyDictionaryWhileTheServerLockIsHeld) {
  server_.serverLock().lock();
  const auto reply = peer_.sends(kPing);
  const auto atOnce = withoutWaiting({{"ping", "anything"}, {"terminate", ""}});
  server_.serverLock().unlock();
  ASSERT_TRUE(reply.has_value());
  EXPECT_TRUE(reply->entries().empty());
  EXPECT_EQ(atOnce, Reply::written());
  EXPECT_TRUE(output_.empty());
}

TEST_F(Deliveries, OfAPingComesBeforeEveryCommandInTheSameRequest) {
  const auto reply = peer_.sends({{"terminate", ""}, {"findPort", "x"}, {"ping", ""}});
  ASSERT_TRUE(reply.has_value());
  EXPECT_TRUE(reply->entries().empty());
}

TEST_F(Deliveries, NeedsNoInfoServerForAPingAndGivesNilForTheRestWithoutOne) {
  NameServer bare;
  Peer peer(bare);
  EXPECT_TRUE(peer.sends(kPing).has_value());
  EXPECT_FALSE(peer.sends({{"action", "unknown"}}).has_value());
}

TEST_F(Deliveries, PassesWhatIsNotRecognisedToTheInfoServer) {
  EXPECT_EQ(peer_.answer({{"action", "get_userpreferences_key"}, {"key", ""}}),
            "group:application");
  EXPECT_EQ(peer_.answer({{"action", "get_userpreferences_key"}}), "(nil)");
  const auto reply = peer_.sends({{"action", "terminate"}});
  ASSERT_TRUE(reply.has_value());
  EXPECT_TRUE(reply->entries().empty());
  EXPECT_NE(peer_.record().info(), nullptr);
}

TEST_F(Deliveries, OfNewPortWithoutATypeEndsAtTheInfoServer) {
  const auto reply = peer_.sends({{"newPort", ""}, {"portName", "db1"}, {"portHost", "h"}});
  ASSERT_TRUE(reply.has_value());
  EXPECT_TRUE(reply->entries().empty());
  EXPECT_EQ(peer_.asksForPort("db1"), "5001");
}

TEST_F(Deliveries, OfACommandThatRaisesIsNilAndReportedAndTheNextOneIsServed) {
  const Message request({{"findPort", "db1"}});
  EXPECT_FALSE(peer_.sends(request).has_value());
  const std::string text =
      "Exception detected. Command could not be executed\n" + request.description() + "\n";
  ASSERT_FALSE(console_.all().empty());
  std::string console;
  for (const std::string& line : console_.all()) {
    console += line + "\n";
  }
  EXPECT_NE(console.find("Exception detected. Command could not be executed"), std::string::npos);
  EXPECT_NE(console.find("findPort"), std::string::npos);
  EXPECT_EQ(log(), text + "\n");
  EXPECT_TRUE(serverLockIsFree());
  EXPECT_EQ(peer_.registers("db1"), "5001");
  EXPECT_EQ(peer_.finds("db1"), "5001");
}

TEST_F(Deliveries, OfARequestOfManyLinesShowsAHundredOnTheConsoleAndTheWholeInTheLog) {
  Message request({{"findPort", "db1"}});
  for (int i = 0; i < 500; ++i) {
    request.setText("key" + std::to_string(i), "");
  }
  EXPECT_FALSE(peer_.sends(request).has_value());
  // Of the first line, the two braces and the 501 entries.
  EXPECT_EQ(console_.all().size(), 101U);
  EXPECT_EQ(console_.all().back(), "404 more lines of this text were left out");
  EXPECT_EQ(log(),
            "Exception detected. Command could not be executed\n" + request.description() + "\n\n");
}

TEST_F(Deliveries, OfManyRequestsThatRaiseShowsAFewOnTheConsoleAndEachInTheLog) {
  constexpr int kRequests = 1000;
  for (int i = 0; i < kRequests; ++i) {
    peer_.accepts();
  }
  EXPECT_EQ(console_.count("Exception detected."), ConsoleRateLimit::kBurst);
  EXPECT_EQ(timesIn(log(), "Exception detected."), kRequests);
}

TEST_F(Deliveries, OfAcceptPortWithoutANameIsReportedAndEntersNothing) {
  peer_.accepts();
  EXPECT_EQ(server_.registry().portCount(), 0U);
  EXPECT_NE(log().find("acceptPort"), std::string::npos);
}

TEST_F(Deliveries, OfAForeignExceptionPassesItOnWithTheServerLockHeld) {
  peer_.asksForPort("db1");
  setTimeSource([]() -> double { throw std::runtime_error("no clock"); });
  EXPECT_THROW(peer_.accepts(), std::runtime_error);
  setTimeSource(nullptr);
  EXPECT_FALSE(serverLockIsFree());
  EXPECT_EQ(console_.all(), std::vector<std::string>{});
  EXPECT_TRUE(peer_.sends(kPing).has_value());
  server_.serverLock().unlock();

  server_.startCommunication(connection_);
  setTimeSource([]() -> double { throw std::runtime_error("no clock"); });
  Turn turn;
  EXPECT_THROW((void)withoutWaiting({{"action", "needsRefresh"}}, turn), std::runtime_error);
  setTimeSource(nullptr);
  EXPECT_FALSE(serverLockIsFree());
}

TEST_F(Deliveries, WithoutWaitingKeepsTheServerLockUntilTheTurnEnds) {
  {
    Turn turn;
    EXPECT_EQ(withoutWaiting({{"ping", ""}}, turn), Reply::written());
    EXPECT_TRUE(serverLockIsFree());
    EXPECT_EQ(withoutWaiting({{"findPort", "x"}, {"portHost", "h"}, {"portHostAddress", ""}}, turn),
              Reply::written());
    EXPECT_FALSE(serverLockIsFree());
    EXPECT_EQ(withoutWaiting({{"findPort", "y"}, {"portHost", "h"}, {"portHostAddress", ""}}, turn),
              Reply::written());
    EXPECT_FALSE(serverLockIsFree());
  }
  EXPECT_TRUE(serverLockIsFree());
}

TEST_F(Deliveries, WithoutWaitingKeepsTheRegistryUntilTheTurnEnds) {
  std::optional<Turn> turn(std::in_place);
  EXPECT_EQ(withoutWaiting({{"findPort", "x"}, {"portHost", "h"}}, *turn), Reply::written());
  std::size_t seen = 99;
  WatchedThread closing([&] { seen = server_.registry().portCount(); });
  EXPECT_TRUE(closing.comesToAWait());
  EXPECT_EQ(withoutWaiting({{"findPort", "y"}, {"portHost", "h"}}, *turn), Reply::written());
  EXPECT_EQ(seen, 99U);
  turn.reset();
  closing.join();
  EXPECT_EQ(seen, 0U);
}

TEST_F(Deliveries, SwallowsAnExceptionOfThePlatformsClassWithinAMarking) {
  peer_.asksForPort("db1");
  setTimeSource([]() -> double { throw NSException("no clock"); });
  peer_.accepts();
  setTimeSource(nullptr);
  EXPECT_EQ(peer_.finds("db1"), "5001");
  EXPECT_EQ(console_.all(), std::vector<std::string>{});
  EXPECT_TRUE(server_.registry().setDirtyLock().tryLock());
  server_.registry().setDirtyLock().unlock();
}

TEST_F(Deliveries, WithoutWaitingCarriesCommandsOut) {
  server_.startCommunication(connection_);
  peer_.registers("db1");
  EXPECT_EQ(withoutWaiting({{"findPort", "db1"}, {"portHost", "h"}}), Reply::written());
  Message reply;
  EXPECT_EQ(reply.readBody(output_.own().view()), nullptr);
  EXPECT_EQ(reply.text("portNumber"), "5001");
  EXPECT_EQ(withoutWaiting({{"action", "didPortsChange"}}), Reply::written());
  const Message reconnect(
      {{"reconnectPort", "db2"}, {"portNumber", "1"}, {"portHost", "h"}, {"portType", "t"}});
  EXPECT_EQ(withoutWaiting(reconnect), Reply::request());
  EXPECT_EQ(peer_.finds("db2"), "1");
  EXPECT_TRUE(serverLockIsFree());
}

TEST_F(Deliveries, WithoutWaitingGivesUpWhileTheServerLockIsHeld) {
  server_.startCommunication(connection_);
  server_.serverLock().lock();
  EXPECT_EQ(withoutWaiting({{"action", "watchPortChanges"}}), std::nullopt);
  server_.serverLock().unlock();
  EXPECT_TRUE(output_.empty());
  EXPECT_EQ(server_.registry().watchingPortsList().count(), 0U);
}

TEST_F(Deliveries, WithoutWaitingLetsThoseWhoWaitForTheServerLockGoFirst) {
  server_.startCommunication(connection_);
  for (int i = 0; i < 20; ++i) {
    const std::string name = "db" + std::to_string(i);
    server_.serverLock().lock();
    WatchedThread waiting([&] { peer_.reconnects(name, "1"); });
    ASSERT_TRUE(waiting.comesToAWait());
    server_.serverLock().unlock();
    const auto reply = withoutWaiting({{"findPort", name}, {"portHost", "h"}});
    Message found;
    ASSERT_TRUE(!reply || found.readBody(output_.own().view()) == nullptr);
    EXPECT_FALSE(found.contains("notFound")) << "it came before the one that waited";
    waiting.join();
  }
}

TEST_F(Deliveries, WithoutWaitingLeavesWhatMayWaitToTheOtherDelivery) {
  server_.startCommunication(connection_);
  const Message requests[] = {
      {{"terminate", ""}},
      {{"action", "restart"}},
      {{"action", "unknown"}},
      {{"action", "get_userpreferences"}, {"key", "x"}},
      {{"action", "sorvexecConnectHost"}},
      {{"action", "hostInfo"}},
  };
  for (const Message& request : requests) {
    EXPECT_EQ(withoutWaiting(request), std::nullopt) << request.description();
  }
  sorvkey_verbose = 1;
  EXPECT_EQ(withoutWaiting({{"findPort", "db1"}, {"portHost", "h"}}), std::nullopt);
  EXPECT_EQ(log(), "");
}

TEST_F(Deliveries, WithoutWaitingLeavesTheReportOfAnExceptionToTheOtherDelivery) {
  server_.startCommunication(connection_);
  const Message request({{"reconnectPort", "db1"}});
  EXPECT_EQ(withoutWaiting(request), std::nullopt);
  EXPECT_TRUE(output_.empty());
  EXPECT_EQ(log(), "");
  EXPECT_EQ(console_.all(), std::vector<std::string>{});
  EXPECT_TRUE(serverLockIsFree());
  EXPECT_EQ(server_.deliverCommunication(request, connection_), Reply::none());
  EXPECT_NE(log(), "");
}

TEST_F(Deliveries, WithoutDiskCarriesCommandsOut) {
  server_.startCommunication(connection_);
  server_.serverLock().lock();
  Delivery ping = withoutDisk(kPing);
  server_.serverLock().unlock();
  EXPECT_EQ(ping.reply(), Reply::written());
  peer_.registers("db1");
  const Delivery found = withoutDisk({{"findPort", "db1"}, {"portHost", "h"}});
  EXPECT_TRUE(found.isComplete());
  EXPECT_EQ(found.reply(), Reply::written());
  Message reply;
  EXPECT_EQ(reply.readBody(output_.own().view()), nullptr);
  EXPECT_EQ(reply.text("portNumber"), "5001");
}

TEST_F(Deliveries, WithoutDiskLeavesTheReportOfAnExceptionForTheLog) {
  server_.startCommunication(connection_);
  const Message request({{"reconnectPort", "db1"}});
  Delivery delivery = withoutDisk(request);
  ASSERT_FALSE(delivery.isComplete());
  EXPECT_EQ(delivery.disk(), Disk::log);
  EXPECT_TRUE(serverLockIsFree());
  EXPECT_EQ(log(), "");
  EXPECT_EQ(console_.all(), std::vector<std::string>{});
  EXPECT_EQ(delivery.takeRest()(request), Reply::none());
  EXPECT_NE(log(), "");
  EXPECT_NE(console_.all(), std::vector<std::string>{});
}

TEST_F(Deliveries, WithoutDiskLeavesTheSearchOfAVerboseServerForTheLog) {
  sorvkey_verbose = 1;
  const Message request({{"findPort", "db1"}, {"portHost", "h"}});
  Delivery delivery = withoutDisk(request);
  ASSERT_FALSE(delivery.isComplete());
  EXPECT_EQ(delivery.disk(), Disk::log);
  EXPECT_TRUE(serverLockIsFree());
  EXPECT_EQ(log(), "");
  EXPECT_EQ(delivery.takeRest()(request), Reply::written());
  EXPECT_EQ(log(), "FIND PORT = " + request.description() + "\n");
}

TEST_F(Deliveries, WithoutDiskLeavesTheInfoServerForThePreferences) {
  server_.startCommunication(connection_);
  server_.infoserver()->commLock().lock();
  Delivery delivery = withoutDisk({{"action", "set_userpreferences_key"}, {"key", "user"}});
  EXPECT_TRUE(serverLockIsFree());
  EXPECT_EQ(peer_.registers("db1"), "5001") << "the info server is at work";
  server_.infoserver()->commLock().unlock();
  ASSERT_FALSE(delivery.isComplete());
  EXPECT_EQ(delivery.disk(), Disk::preferences);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "SorvPreferences") &&
               readFile(folder_ / "SorvPreferences").find("user") != std::string::npos);
  EXPECT_EQ(delivery.takeRest()({{"action", "set_userpreferences_key"}, {"key", "user"}}),
            Reply::written());
  EXPECT_NE(readFile(folder_ / "SorvPreferences").find("user"), std::string::npos);
}

TEST_F(Deliveries, WhenVerboseLogsARequestThatRaisesTwice) {
  sorvkey_verbose = 1;
  const Message request({{"findPort", "db1"}});
  EXPECT_FALSE(peer_.sends(request));
  EXPECT_EQ(log(), "FIND PORT = " + request.description() +
                       "\nException detected. Command could not be executed\n" +
                       request.description() + "\n\n");
}

TEST_F(Deliveries, WhenVerboseLogsWhatIsSought) {
  sorvkey_verbose = 1;
  const Message request({{"findPort", "db1"}, {"portHost", "h"}});
  (void)peer_.sends(request);
  EXPECT_EQ(log(), "FIND PORT = " + request.description() + "\n");
}

TEST_F(Deliveries, OfHostInfoCarriesTheVersionTexts) {
  EXPECT_EQ(peer_.action("hostInfo"), "testhost|00:11:22:33:44:55|10.1.2.3|" +
                                          sorvkeyController::sorvaneVersion() + "|" +
                                          sorvkeyController::platformName());
}

struct HostCase {
  const char* address;
  bool dynamic;
  bool remoteUsersAreServed;
};

class DeliveryOfAHost : public NameServerTest, public testing::WithParamInterface<HostCase> {};

TEST_P(DeliveryOfAHost, ServesRemoteUsersUnlessItsOnlyAddressIsTheLoopbackOne) {
  settings_.address = GetParam().address;
  settings_.dynamicAddress = GetParam().dynamic;
  settingsChanged();
  NameServer server;
  Peer remote(server);
  const Message request({{"findPort", "db1"}, {"portHost", "h"}, {"portHostAddress", "10.0.0.5"}});
  EXPECT_EQ(remote.answer(request, "notFound"),
            GetParam().remoteUsersAreServed ? "notFound" : "(nil)");
}

INSTANTIATE_TEST_SUITE_P(Each, DeliveryOfAHost,
                         testing::Values(HostCase{"127.0.0.1", false, false},
                                         HostCase{"127.0.0.1", true, true},
                                         HostCase{"10.1.2.3", false, true},
                                         HostCase{"10.1.2.3", true, true}));

TEST_F(Deliveries, OfHostListUsesTheAliasesOfTheSettings) {
  settings_.aliases["10.9.9.9"] = "outside";
  settingsChanged();
  server_.registry().with([](RegistryState& state) {
    state.hosts.hostList = HostLists::List{"a@1"};
    state.hosts.alternateHostList = HostLists::List{"x@8"};
  });
  EXPECT_EQ(peer_.answer({{"action", "hostList"}, {"hostAddress", "10.9.9.9"}}), "x@8");
  EXPECT_EQ(peer_.answer({{"action", "hostList"}, {"hostAddress", "10.0.0.5"}}), "a@1");
}

using EndOfProcess = Deliveries;

TEST_F(EndOfProcess, OnTerminateHasStatusZeroAndItsLogLine) {
  EXPECT_EXIT((void)peer_.sends({{"terminate", ""}}), testing::ExitedWithCode(0), "");
  EXPECT_EQ(log(), "sorvinfo was asked to terminate.\n");
}

TEST_F(EndOfProcess, OnRestartHasStatusZeroAndItsLogLine) {
  EXPECT_EXIT((void)peer_.sends({{"action", "RESTART"}}), testing::ExitedWithCode(0), "");
  EXPECT_EQ(log(), "sorvinfo was asked to restart.\n");
}

TEST_F(Deliveries, KeepsTheTextsThatItReplacesUntilItsCleanup) {
  peer_.reconnects("the first name of this database");
  server_.cleanupAfterMessage();
  EXPECT_EQ(retiredTexts, 0U);
  const std::string_view name = *peer_.record().portName();
  peer_.reconnects("another name");
  EXPECT_EQ(name, "the first name of this database");
  EXPECT_EQ(retiredTexts, 1U);
  server_.cleanupAfterMessage();
  EXPECT_EQ(retiredTexts, 0U);
}

}  // namespace
}  // namespace sorvane::test
