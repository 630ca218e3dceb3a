#include "registry/CommandServer.h"

namespace sorvane::test {
namespace {

class HostInfo : public CommandTest {
 protected:
  std::string asks(std::string_view address) {
    return peer_.answer({{"action", "hostInfo"}, {"hostAddress", address}});
  }
  HostLists hosts() {
    return server_.registry.with([](const RegistryState& state) { return state.hosts; });
  }
  Peer peer_{server_};
};
using HostList = HostInfo;
using SorvexecConnectHost = HostInfo;
using EndOfProcess = HostInfo;

TEST_F(HostInfo, AnswersFiveFields) {
  EXPECT_EQ(peer_.action("hostInfo"),
            "testhost|00:11:22:33:44:55|10.1.2.3|9.8.7 (build #6) 1.2.2003|test system");
}

TEST_F(HostInfo, OfAHostThatIsNotLocalOnlyAnswersWhateverTheAddress) {
  const std::string fields = peer_.action("hostInfo");
  for (const char* address : {"", "localhost", "10.0.0.5", "127.0.0.1"}) {
    EXPECT_EQ(asks(address), fields) << address;
  }
  hostIs("127.0.0.1", true);
  EXPECT_NE(asks("10.0.0.5"), "local only") << "an address that will change";
}

TEST_F(HostInfo, OfALocalOnlyHostAnswersLocalRequestersAlone) {
  hostIs("127.0.0.1", false);
  EXPECT_EQ(peer_.sends({{"action", "hostInfo"}})->data("result"),
            std::string_view("local only\0", 11));
  for (const char* address : {"", "10.0.0.5", "Localhost", "127.0.0.2"}) {
    EXPECT_EQ(asks(address), "local only") << address;
  }
  for (const char* address : {"localhost", "127.0.0.1"}) {
    EXPECT_EQ(asks(address),
              "testhost|00:11:22:33:44:55|127.0.0.1|9.8.7 (build #6) 1.2.2003|test system");
  }
}

TEST_F(HostInfo, CreatesTheFirstHostListAlone) {
  (void)peer_.action("hostInfo");
  EXPECT_TRUE(hosts().hostList.has_value());
  EXPECT_FALSE(hosts().alternateHostList.has_value());
}

TEST_F(HostInfo, WithAnAddressThatIsNoTextRaises) {
  for (const char* action : {"hostInfo", "hostList"}) {
    EXPECT_THROW((void)peer_.sends(Message({{"action", action}}).setData("hostAddress", "\xff")),
                 NSException);
  }
  EXPECT_FALSE(hosts().hostList.has_value());
}

TEST_F(HostList, OfAFreshServerIsOneNul) {
  EXPECT_EQ(peer_.sends({{"action", "hostList"}})->data("result"), std::string_view("\0", 1));
  EXPECT_TRUE(hosts().hostList.has_value());
  EXPECT_TRUE(hosts().alternateHostList.has_value());
}

TEST_F(HostList, AnswersTheSecondListToAnAddressWithAnAlias) {
  server_.registry.with([](RegistryState& state) {
    state.hosts.hostList = HostLists::List{"a@1", "b@2"};
    state.hosts.alternateHostList = HostLists::List{"x@8", "y@9"};
  });
  EXPECT_EQ(peer_.action("hostList"), "a@1|b@2");
  EXPECT_EQ(peer_.answer({{"action", "hostList"}, {"hostAddress", "10.0.0.5"}}), "a@1|b@2");
  EXPECT_EQ(peer_.answer({{"action", "hostList"}, {"hostAddress", "10.9.9.9"}}), "x@8|y@9");
}

TEST_F(HostList, IsEmptyForAnAliasWhenTheSecondListWasNeverMade) {
  (void)peer_.action("hostInfo");
  EXPECT_EQ(peer_.answer({{"action", "hostList"}, {"hostAddress", "10.9.9.9"}}), "");
}

TEST_F(HostList, HasNoLocalOnlyTest) {
  hostIs("127.0.0.1", false);
  EXPECT_EQ(peer_.answer({{"action", "hostList"}, {"hostAddress", "10.0.0.5"}}), "");
}

Message launcher(std::string_view ethernetAddress) {
  return {{"action", "sorvexecConnectHost"},
          {"hostName", "hostA"},
          {"portHostAddress", "10.0.0.7"},
          {"ethernetAddress", ethernetAddress}};
}

TEST_F(SorvexecConnectHost, OfThisMachineIsConnectedAndTheListStaysEmpty) {
  EXPECT_EQ(peer_.answer(launcher("00:11:22:33:44:55")), "connected");
  EXPECT_EQ(hosts().hostList, HostLists::List());
  EXPECT_EQ(hosts().alternateHostList, HostLists::List());
  EXPECT_EQ(hosts().hostNameString, "localhost") << "not the launcher's own name";
}

TEST_F(SorvexecConnectHost, AppendsTheLoopbackKeyWhenItIsListed) {
  server_.registry.with(
      [](RegistryState& state) { state.hosts.hostList = HostLists::List{"localhost@127.0.0.1"}; });
  EXPECT_EQ(peer_.answer(launcher("00:11:22:33:44:55")), "connected");
  EXPECT_EQ(hosts().hostList, (HostLists::List{"localhost@127.0.0.1", "localhost@127.0.0.1"}));
}

TEST_F(SorvexecConnectHost, OfAnotherMachineFails) {
  for (const char* address : {"00:11:22:33:44:56", "", "00:11:22:33:44:55 ", "localhost"}) {
    EXPECT_EQ(peer_.answer(launcher(address)), "failed") << address;
  }
  EXPECT_TRUE(loggedLines.empty());
  EXPECT_FALSE(hosts().hostList.has_value());
}

TEST_F(SorvexecConnectHost, WhenVerboseLogsAddressesThatDiffer) {
  server_.verbose = true;
  EXPECT_EQ(peer_.answer(launcher("66:77")), "failed");
  EXPECT_EQ(loggedLines,
            std::vector<std::string>{"ERROR CONNECTING sorvexec, ethernet address does "
                                     "not match (66:77 != 00:11:22:33:44:55)\n"});
}

TEST_F(SorvexecConnectHost, WhenVerboseLogsNoControlCharacterOfThePeer) {
  server_.verbose = true;
  EXPECT_EQ(peer_.answer(launcher("66\r\nforged line\x1b[2J\x7f\u009b")), "failed");
  EXPECT_EQ(loggedLines, std::vector<std::string>{
                             "ERROR CONNECTING sorvexec, ethernet address does not match "
                             "(66\\x0d\\x0aforged line\\x1b[2J\\x7f\\x9b != 00:11:22:33:44:55)\n"});
}

TEST_F(SorvexecConnectHost, WithoutAnEthernetAddressCostsAFewConsoleLinesHoweverOftenItIsSent) {
  Message request({{"action", "sorvexecConnectHost"}, {"hostName", "h"}, {"portHostAddress", "1"}});
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(peer_.answer(request), "failed");
  }
  EXPECT_GT(console_.all().size(), 0U);
  EXPECT_LE(console_.all().size(), static_cast<std::size_t>(ConsoleRateLimit::kBurst));
}

TEST_F(SorvexecConnectHost, WithoutNameOrAddressHasNoReply) {
  for (const char* missing : {"hostName", "portHostAddress"}) {
    Message request({{"action", "sorvexecConnectHost"}});
    for (const char* key : {"hostName", "portHostAddress", "ethernetAddress"}) {
      if (std::string_view(key) != missing) {
        request.setText(key, "00:11:22:33:44:55");
      }
    }
    EXPECT_EQ(peer_.answer(request), "(nil)") << missing;
  }
  EXPECT_EQ(console_.all(), std::vector<std::string>{});
}

TEST_F(SorvexecConnectHost, WithoutAnEthernetAddressFailsWithAConsoleLine) {
  EXPECT_EQ(peer_.answer({{"action", "sorvexecConnectHost"},
                          {"hostName", "hostA"},
                          {"portHostAddress", "10.0.0.7"}}),
            "failed");
  EXPECT_EQ(console_.all(),
            std::vector<std::string>{"ethernetAddress missing from sorvexec communication"});
}

TEST_F(SorvexecConnectHost, WithAValueThatIsNoTextRaises) {
  for (const char* key : {"hostName", "portHostAddress", "ethernetAddress"}) {
    EXPECT_THROW((void)peer_.sends(launcher("00:11:22:33:44:55").setData(key, "\xff")), NSException)
        << key;
  }
  EXPECT_FALSE(hosts().hostList.has_value());
}

TEST_F(EndOfProcess, IsDecidedByTerminateAndRestartWithTheirLines) {
  EXPECT_EQ(peer_.answer({{"terminate", ""}}), "(nil)");
  EXPECT_EQ(server_.lastKind, Outcome::Kind::endProcess);
  EXPECT_EQ(server_.lastLogLine, "sorvinfo was asked to terminate.");
  EXPECT_TRUE(server_.lastMayWait);
  EXPECT_EQ(peer_.action("Restart"), "(nil)");
  EXPECT_EQ(server_.lastKind, Outcome::Kind::endProcess);
  EXPECT_EQ(server_.lastLogLine, "sorvinfo was asked to restart.");
  EXPECT_TRUE(server_.lastMayWait);
}

}  // namespace
}  // namespace sorvane::test
