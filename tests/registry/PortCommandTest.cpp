#include "registry/CommandServer.h"

namespace sorvane::test {
namespace {

class NewPort : public CommandTest {};
class AcceptPort : public CommandTest {};
class ReconnectPort : public CommandTest {};
class FindPort : public CommandTest {};

class RemoteConnection : public InProcessConnection {
  [[nodiscard]] bool isFromThisMachine() const override { return false; }
};

Message newPortRequest() {
  return {{"newPort", ""}, {"portHost", "hostA"}, {"portName", "db1"}, {"portType", "db"}};
}

TEST_F(NewPort, HandsOutTheNumbersAboveTheBasePort) {
  Peer first(server_);
  Peer second(server_);
  EXPECT_EQ(first.asksForPort("db1"), "5001");
  EXPECT_EQ(second.asksForPort("db2"), "5002");
  EXPECT_EQ(first.asksForPort("db1"), "5003");
}

TEST_F(NewPort, NeverHandsANumberOutAgain) {
  { EXPECT_EQ(Peer(server_).registers("db1"), "5001"); }
  EXPECT_EQ(Peer(server_).registers("db1"), "5002");
}

TEST_F(NewPort, GivesLaunchersTheNumberBelowTheBasePortAndLeavesTheCounter) {
  Peer peer(server_);
  for (const char* name : {"SORVEXEC", "sorvexec", "SorvExec"}) {
    EXPECT_EQ(peer.asksForPort(name), "4999") << name;
  }
  EXPECT_EQ(peer.asksForPort("sorvexec2"), "5001");
}

TEST_F(NewPort, FillsTheRecordOfTheSender) {
  Peer peer(server_);
  Message request = newPortRequest();
  EXPECT_EQ(keysOf(peer.sends(request.setText("portHostAddress", "10.0.0.7"))), "portNumber ");
  EXPECT_EQ(peer.record().portNumber(), "5001");
  EXPECT_EQ(peer.record().portHost(), "hostA");
  EXPECT_EQ(peer.record().portHostAddress(), "10.0.0.7");
  EXPECT_EQ(peer.record().portName(), "db1");
  EXPECT_EQ(peer.record().portType(), "db");
  EXPECT_EQ(peer.record().portKey(), "db1@hostA");
}

TEST_F(NewPort, WithoutAnAddressLeavesTheEarlierOne) {
  Peer peer(server_);
  peer.asksForPort("db1");
  EXPECT_FALSE(peer.record().portHostAddress().has_value());
  (void)peer.sends(newPortRequest().setText("portHostAddress", "10.0.0.7"));
  peer.asksForPort("db2");
  EXPECT_EQ(peer.record().portHostAddress(), "10.0.0.7");
}

TEST_F(NewPort, IsNotFoundAndTellsNobodyBeforeItIsAccepted) {
  Peer watcher(server_);
  (void)watcher.action("didPortsChange");
  Peer peer(server_);
  peer.asksForPort("db1");
  EXPECT_EQ(watcher.finds("db1"), "(none)");
  EXPECT_EQ(watcher.action("didPortsChange"), "NO");
}

TEST_F(NewPort, RemovesTheEntryOfItsPreviousName) {
  Peer peer(server_);
  peer.registers("db1");
  peer.asksForPort("db2");
  EXPECT_EQ(peer.finds("db1"), "(none)");
  EXPECT_EQ(peer.finds("db2"), "(none)");
  peer.accepts();
  EXPECT_EQ(peer.finds("db2"), "5002");
}

TEST_F(NewPort, RemovesTheEntryOfItsPreviousNameWhoeverHoldsIt) {
  Peer first(server_);
  Peer second(server_);
  first.registers("db1");
  second.registers("db1");
  first.asksForPort("db2");
  EXPECT_EQ(first.finds("db1"), "(none)");
}

TEST_F(NewPort, CountsPortNumbersBeyondThoseOfTcp) {
  server_.registry.with([](RegistryState& state) { state.maxport = 65535; });
  Peer peer(server_);
  EXPECT_EQ(peer.asksForPort("db1"), "65535");
  EXPECT_EQ(peer.asksForPort("db2"), "65536");
}

TEST_F(NewPort, OfARecordWithoutANumberRemovesNothing) {
  Peer first(server_);
  first.registers("db1");
  Peer second(server_);
  second.record().setPortName("db1");
  second.asksForPort("db2");
  EXPECT_EQ(second.finds("db1"), "5001");
}

TEST_F(NewPort, TakesTheEmptyNameLikeAnyOther) {
  Peer peer(server_);
  EXPECT_EQ(peer.registers(""), "5001");
  EXPECT_EQ(peer.finds(""), "5001");
}

TEST_F(NewPort, WithAValueThatIsNoTextRaisesAndChangesNothing) {
  for (const char* key : {"portHost", "portName", "portType", "portHostAddress"}) {
    for (const char* bytes : {"", "\xff"}) {
      Peer peer(server_);
      peer.reconnects("kept");
      Message request = newPortRequest();
      request.setData(key, bytes);
      EXPECT_THROW((void)peer.sends(request), NSException) << key;
      EXPECT_EQ(peer.record().portName(), "kept");
      EXPECT_EQ(peer.finds("kept"), "4000");
    }
  }
  EXPECT_EQ(Peer(server_).asksForPort("db1"), "5001") << "no number was spent";
}

TEST_F(AcceptPort, EntersTheRecordAndMarksTheWatchers) {
  Peer watcher(server_);
  (void)watcher.action("didPortsChange");
  Peer peer(server_);
  peer.asksForPort("db1");
  movedTime = 2000.0;
  peer.accepts();
  EXPECT_EQ(watcher.finds("db1"), "5001");
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
  EXPECT_EQ(watcher.action("changeTimestamp"), "2000.000000");
}

TEST_F(AcceptPort, AnswersWithTheRequestByteForByte) {
  Peer peer(server_);
  peer.asksForPort("db1");
  Message request;
  request.setData("zz", std::string_view("\0\xff", 2)).setData("acceptPort", "").setText("a", "b");
  EXPECT_EQ(peer.sends(request)->body(), request.body());
}

TEST_F(AcceptPort, ReplacesAnEarlierRecordOfThatName) {
  Peer first(server_);
  Peer second(server_);
  first.registers("db1");
  second.registers("db1");
  EXPECT_EQ(first.finds("db1"), "5002");
  EXPECT_EQ(server_.registry.portCount(), 1U);
}

TEST_F(AcceptPort, WithoutANameRaisesAndEntersNothing) {
  Peer peer(server_);
  EXPECT_THROW(peer.accepts(), NSException);
  EXPECT_EQ(server_.registry.portCount(), 0U);
}

TEST_F(AcceptPort, NeedsNoSecondNewPort) {
  Peer peer(server_);
  peer.registers("db1");
  peer.accepts();
  EXPECT_EQ(peer.finds("db1"), "5001");
  EXPECT_EQ(server_.registry.portCount(), 1U);
}

TEST_F(ReconnectPort, FillsAndEntersTheRecord) {
  Peer watcher(server_);
  (void)watcher.action("didPortsChange");
  Peer peer(server_);
  (void)peer.sends({{"reconnectPort", "db1"},
                    {"portNumber", "4711"},
                    {"portHost", "hostA"},
                    {"portHostAddress", "10.0.0.7"},
                    {"portType", "db"}});
  EXPECT_EQ(peer.record().portKey(), "db1@hostA");
  EXPECT_EQ(peer.record().portName(), "db1");
  EXPECT_EQ(peer.record().portHostAddress(), "10.0.0.7");
  EXPECT_EQ(peer.record().portHost(), "hostA");
  EXPECT_EQ(peer.record().portNumber(), "4711");
  EXPECT_EQ(peer.record().portType(), "db");
  EXPECT_EQ(watcher.finds("db1"), "4711");
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
}

TEST_F(ReconnectPort, AnswersWithTheRequestByteForByte) {
  Peer peer(server_);
  const Message request({{"portType", "db"},
                         {"portHost", "hostA"},
                         {"extra", ""},
                         {"reconnectPort", "db1"},
                         {"portNumber", "4711"}});
  EXPECT_EQ(peer.sends(request)->body(), request.body());
}

TEST_F(ReconnectPort, KeepsTheEntryOfItsPreviousName) {
  Peer peer(server_);
  peer.reconnects("db1", "4001");
  peer.reconnects("db2", "4002");
  EXPECT_EQ(peer.finds("db2"), "4002");
  EXPECT_EQ(peer.finds("db1"), "4002") << "one record under two names";
  EXPECT_EQ(peer.answer({{"findPort", "db1"}, {"portHost", "h"}}, "portName"), "db2");
}

TEST_F(ReconnectPort, LeavesTheCounterAndTheEarlierAddress) {
  Peer peer(server_);
  (void)peer.sends(newPortRequest().setText("portHostAddress", "10.0.0.7"));
  peer.reconnects("db1");
  EXPECT_EQ(peer.record().portHostAddress(), "10.0.0.7");
  EXPECT_EQ(peer.asksForPort("db2"), "5002");
}

TEST_F(ReconnectPort, ReplacesAnEarlierRecordOfThatName) {
  Peer first(server_);
  first.registers("db1");
  Peer second(server_);
  second.reconnects("db1", "4711");
  EXPECT_EQ(first.finds("db1"), "4711");
}

TEST_F(ReconnectPort, WithoutAValueItNeedsRaisesAndChangesNothing) {
  const char* const keys[] = {"portNumber", "portHost", "portType", "reconnectPort"};
  for (const char* bad : keys) {
    for (const char* bytes : {"", "\xff"}) {
      Peer peer(server_);
      peer.registers("kept");
      Message request;
      for (const char* key : keys) {
        request.setText(key, "x");
      }
      request.setData(bad, bytes);
      EXPECT_THROW((void)peer.sends(request), NSException) << bad;
      EXPECT_EQ(peer.record().portName(), "kept");
      EXPECT_EQ(server_.registry.portCount(), 1U);
    }
  }
  Peer peer(server_);
  EXPECT_THROW((void)peer.sends({{"reconnectPort", "db1"}}), NSException);
  EXPECT_FALSE(peer.record().portName().has_value());
}

TEST_F(FindPort, AnswersWhereThePortIs) {
  Peer server(server_);
  server.registers("db1", "hostA", "a type");
  Peer client(server_);
  const auto reply = client.sends({{"findPort", "db1"}, {"portHost", "hostZ"}});
  EXPECT_EQ(keysOf(reply), "portNumber portName portHostAddress portHost portType ");
  EXPECT_EQ(reply->data("portNumber"), std::string_view("5001\0", 5));
  EXPECT_EQ(reply->text("portName"), "db1");
  EXPECT_EQ(reply->text("portHost"), "hostA");
  EXPECT_EQ(reply->text("portType"), "a type");
}

TEST_F(FindPort, GivesTheRequesterItsOwnAddressBack) {
  Peer server(server_);
  (void)server.sends(newPortRequest().setText("portHostAddress", "10.0.0.7"));
  server.accepts();
  Peer client(server_);
  EXPECT_EQ(client.answer({{"findPort", "db1"}, {"portHost", "hostZ"}}, "portHostAddress"),
            "hostZ");
  EXPECT_EQ(client.answer({{"findPort", "db1"}, {"portHost", "hostZ"}, {"portHostAddress", "1.2"}},
                          "portHostAddress"),
            "1.2");
}

TEST_F(FindPort, LeavesOutWhatTheRecordLacks) {
  auto record = std::make_shared<PortDescriptor>();
  record->setPortName("own");
  record->setPortNumber("5000");
  server_.registry.enterPort("own", record);
  EXPECT_EQ(keysOf(Peer(server_).sends({{"findPort", "own"}, {"portHost", "h"}})),
            "portNumber portName portHostAddress ");
}

TEST_F(FindPort, FindsAnExactNameFromAnyHost) {
  Peer server(server_);
  server.registers("db1");
  for (const char* host : {"hostA", "hostB", ""}) {
    EXPECT_EQ(server.finds("db1", host), "5001") << host;
  }
  for (const char* name : {"DB1", "db", "db11", "db1 ", ""}) {
    EXPECT_EQ(server.finds(name), "(none)") << name;
  }
}

TEST_F(FindPort, OfAnUnknownNameAnswersNotFound) {
  const auto reply = Peer(server_).sends({{"findPort", "db1"}, {"portHost", "h"}});
  EXPECT_EQ(keysOf(reply), "notFound ");
  EXPECT_EQ(reply->data("notFound"), std::string_view("notFound\0", 9));
}

TEST_F(FindPort, WithoutAValueItNeedsRaises) {
  Peer peer(server_);
  EXPECT_THROW((void)peer.sends({{"findPort", "db1"}}), NSException);
  for (const char* key : {"findPort", "portHost", "portHostAddress"}) {
    for (const char* bytes : {"", "\xff"}) {
      Message request({{"findPort", "db1"}, {"portHost", "h"}, {"portHostAddress", "h"}});
      request.setData(key, bytes);
      EXPECT_THROW((void)peer.sends(request), NSException) << key;
    }
  }
}

TEST_F(FindPort, WhenVerboseLogsTheRequestAndMayWait) {
  Peer peer(server_);
  const Message request({{"findPort", "db1"}, {"portHost", "h"}});
  (void)peer.sends(request);
  EXPECT_TRUE(loggedLines.empty());
  EXPECT_FALSE(server_.lastMayWait);
  server_.verbose = true;
  (void)peer.sends(request);
  EXPECT_EQ(loggedLines, std::vector<std::string>{"FIND PORT = " + request.description()});
  EXPECT_TRUE(server_.lastMayWait);
}

TEST_F(FindPort, WhenVerboseLogsARequestThatRaisesToo) {
  server_.verbose = true;
  Peer peer(server_);
  const Message request({{"findPort", "db1"}});
  EXPECT_THROW((void)peer.sends(request), NSException);
  EXPECT_EQ(loggedLines, std::vector<std::string>{"FIND PORT = " + request.description()});
}

TEST_F(FindPort, OfManyRemoteUsersOnALocalOnlyHostCostsAFewConsoleLines) {
  hostIs("127.0.0.1", false);
  Peer peer(server_);
  for (int i = 0; i < 1000; ++i) {
    EXPECT_FALSE(peer.sends({{"findPort", "db1"}, {"portHost", "10.0.0.5"}}));
  }
  EXPECT_GT(console_.all().size(), 0U);
  EXPECT_LE(console_.all().size(), static_cast<std::size_t>(ConsoleRateLimit::kBurst));
}

struct LocalOnlyCase {
  const char* hostAddress;
  bool dynamic;
  const char* requesterAddress;
  bool answered;
};

TEST_F(FindPort, OnALocalOnlyHostAnswersLocalRequestersAlone) {
  const LocalOnlyCase cases[] = {
      {"127.0.0.1", false, "10.0.0.5", false},  {"127.0.0.1", false, "127.0.0.1", true},
      {"127.0.0.1", false, "localhost", true},  {"127.0.0.1", false, "LOCALHOST", false},
      {"127.0.0.1", false, "127.0.0.2", false}, {"127.0.0.1", false, "", false},
      {"127.0.0.1", true, "10.0.0.5", true},    {"10.1.2.3", false, "10.0.0.5", true},
      {"10.1.2.3", true, "10.0.0.5", true},
  };
  for (const LocalOnlyCase& each : cases) {
    hostIs(each.hostAddress, each.dynamic);
    console_.clear();
    Peer peer(server_);
    const std::string byAddress = peer.answer(
        {{"findPort", "db1"}, {"portHost", "x"}, {"portHostAddress", each.requesterAddress}},
        "notFound");
    const bool mayWaitByAddress = server_.lastMayWait;
    const std::string byHost =
        peer.answer({{"findPort", "db1"}, {"portHost", each.requesterAddress}}, "notFound");
    const char* const expected = each.answered ? "notFound" : "(nil)";
    EXPECT_EQ(byAddress, expected) << each.hostAddress << " " << each.requesterAddress;
    EXPECT_EQ(byHost, expected) << each.hostAddress << " " << each.requesterAddress;
    EXPECT_EQ(mayWaitByAddress, !each.answered);
    EXPECT_EQ(server_.lastMayWait, !each.answered);
    const std::vector<std::string> refusals(
        2, "Remote user failed because server is configured for non-network access");
    EXPECT_EQ(console_.all(), each.answered ? std::vector<std::string>{} : refusals);
  }
}

TEST_F(FindPort, OnALocalOnlyHostRefusesAKnownNameToo) {
  hostIs("127.0.0.1", false);
  Peer peer(server_);
  peer.registers("db1");
  EXPECT_EQ(peer.finds("db1", "10.0.0.5"), "(nil)");
  EXPECT_EQ(peer.finds("db1", "localhost"), "5001");
}

TEST_F(AcceptPort, OfTheGreatestLengthOfAReplyIsItsOwnReply) {
  Peer peer(server_);
  (void)peer.asksForPort("db1");
  const std::size_t others = textEntryBytes("acceptPort", 0) + textEntryBytes("more", 0);
  const std::string filling(kMaximumReplyBytes - others, 'x');
  const auto reply = peer.sends({{"acceptPort", ""}, {"more", filling}});
  ASSERT_TRUE(reply.has_value());
  EXPECT_EQ(reply->body().size(), kMaximumReplyBytes);
  EXPECT_EQ(peer.finds("db1"), "5001");
}

TEST_F(AcceptPort, ThatIsReservedForThisMachineIsNotEvenTriedForAnother) {
  RemoteConnection remote;
  server_.startCommunication(remote);
  const Message withoutAName({{"acceptPort", ""}});
  server_.host.takesRemoteRegistration = false;
  EXPECT_EQ(deliverInProcess(server_, withoutAName, remote), std::nullopt);
  server_.host.takesRemoteRegistration = true;
  EXPECT_THROW((void)deliverInProcess(server_, withoutAName, remote), NSException);
}

}  // namespace
}  // namespace sorvane::test
